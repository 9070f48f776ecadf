#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/text/number.h"

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

/// Whether the byte is one of a UTF-8 character behind its first.
constexpr bool is_utf8_tail(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

constexpr bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '\x7F'; }

/// The four hexadecimal digits at `from` as a number, or -1.
inline std::int32_t hex4(std::string_view text, std::size_t from) {
  if (from + 4 > text.size()) return -1;
  return whole_number<std::uint32_t>(text.substr(from, 4), 0, 0xFFFF, 16).value_or(-1);
}
