#pragma once

#include <algorithm>
#include <string>
#include <string_view>

/// Lower case of an ASCII letter, whatever the locale; every other byte as it is.
constexpr char ascii_lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

inline std::string ascii_lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = ascii_lower(c);
  return lower;
}

inline bool is_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

constexpr bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7F'; }
