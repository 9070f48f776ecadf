#pragma once

#include <string>
#include <vector>

/// What the service makes of its files and of the command line `options`, as one JSON object
/// (UTF-8); docs/architecture.md lists its members. The files are those beside the program. Throws
/// std::bad_alloc alone.
std::string settings_as_json(const std::vector<const char*>& options);
