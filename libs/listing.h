#pragma once

#include <cstddef>
#include <string_view>

// The rules for a library's value in [REGISTER] of quorvel_service.ini.

/// Longest value, and longest path that it stands for, in bytes.
inline constexpr std::size_t kLongestLibraryPath = 199;

/// Whether the value is one of a library at all; another is skipped.
bool names_library(std::string_view value);
