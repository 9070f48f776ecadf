#pragma once

#include <string_view>

/// Says in the log that a request was refused: `whose` ("a page of"), the name that the request
/// bears, of any bytes, of which 100 are shown, and why. The same at most once a second; the memory
/// that it takes is bounded whatever names come.
void log_refusal(const char* whose, std::string_view name, const char* why);
