#pragma once

#include <string>

#include "readers/pcsc/profile.h"

/// What the names of the library's own functions begin with.
inline constexpr char kOwnFunctions[] = "pcsc.";
inline constexpr char kReadersFunction[] = "pcsc.readers";
inline constexpr char kTransmitFunction[] = "pcsc.transmit";

/// All names that the library serves with these profiles, a line feed behind each.
std::string listed_functions(const ProfileSet& profiles);
