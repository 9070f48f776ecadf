#pragma once

#include <string>

/// The working directory. Ends the process with status 1, and a message on standard error, when it
/// can't be read or is longer than 4095 bytes.
std::string require_working_directory();
