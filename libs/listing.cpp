#include "libs/listing.h"

bool names_library(std::string_view value) { return value.find("so") != std::string_view::npos; }
