#pragma once

#include <string>
#include <vector>

/// What counts in the section [ACCESS] of the service INI file at `path`, as one JSON object
/// (UTF-8); docs/architecture.md lists its members. Throws std::bad_alloc alone.
std::string access_as_json(const char* path);

/// What the service makes of its files and of the command line `options`, as one JSON object
/// (UTF-8); docs/architecture.md lists its members. The files are those beside the program. Throws
/// std::bad_alloc alone.
std::string settings_as_json(const std::vector<const char*>& options);
