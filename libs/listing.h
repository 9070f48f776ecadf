#pragma once

#include <cstddef>
#include <string_view>

// How the service INI file lists the libraries, and the rules for their values.

inline constexpr char kServiceIni[] = "quorvel_service.ini";
inline constexpr char kLibrarySection[] = "REGISTER";

/// Longest value, and longest path that it stands for, in bytes.
inline constexpr std::size_t kLongestLibraryPath = 199;

/// Whether the value is one of a library at all; another is skipped.
bool names_library(std::string_view value);
