#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "config/ini.h"

/// A key that an INI file may hold; with `numbers`, the keys from key1 to that. Keys of a section
/// without a key here are checked by who reads them. Each key is declared beside the code that
/// reads it.
struct KnownKey {
  std::string_view section;
  std::string_view key;
  int numbers;

  bool is(std::string_view name) const;
};
using KnownKeys = std::vector<KnownKey>;

/// All of them, for one file.
KnownKeys together(std::initializer_list<KnownKeys> parts);

/// The name without blanks around it, in lower case: what its writer may have meant.
std::string plain_name(std::string_view name);

/// Whether the line seems to be meant for the section, which has these keys, and misses it: a key
/// that the section does not know, one of its keys elsewhere, a line without "=", a header in other
/// letters.
bool misses(const IniLine& line, std::string_view section, const KnownKeys& keys);

/// Names in the log each of the file's lines that has no effect, with the cure, and a character set
/// of which nothing is understood.
void report_lines(const std::string& path, const std::vector<IniLine>& lines,
                  const KnownKeys& keys);
