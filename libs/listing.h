#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "config/service_ini.h"
#include "util/text/charset.h"

// How the service INI file lists the libraries, and the rules for their values.

inline constexpr char kLibrarySection[] = "REGISTER";

/// Longest value, and longest path that it stands for, in bytes.
inline constexpr std::size_t kLongestLibraryPath = 199;

/// A library that the file lists.
struct ListedLibrary {
  std::string key;             ///< "lib1" and so on
  std::string value;           ///< as it stands in the file
  std::string path;            ///< the value, or the file of that name beside the program
  std::chrono::seconds limit;  ///< for one call, of an isolated library; kInProcess of another
  Gbk failure;                 ///< why it is not loaded; empty while it can be, or is
};
inline constexpr std::chrono::seconds kInProcess(0);
using Listing = std::vector<ListedLibrary>;

/// The libraries that the file lists, in the order of their keys. What is written wrongly is named
/// in the log, with the cure, and has a failure.
Listing read_listing(const ServiceIni& ini);

/// Those of the libraries and of their isolation.
KnownKeys listing_keys();

/// Whether the value is one of a library at all; another is skipped.
bool names_library(std::string_view value);
