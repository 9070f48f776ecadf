#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "util/text/number.h"

/// Hexadecimal digits, each at its value or 6 behind it.
inline constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";

/// The value of a hexadecimal digit, or -1.
constexpr int hex_value(char digit) {
  const std::size_t place = kHexDigits.find(digit);
  if (place == std::string_view::npos) return -1;
  return static_cast<int>(place < 16 ? place : place - 6);
}

/// Bytes as upper-case hexadecimal digits, two each.
inline std::string hexadecimal(std::string_view bytes) {
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    digits += kHexDigits[byte >> 4];
    digits += kHexDigits[byte & 0xF];
  }
  return digits;
}

/// The bytes of hexadecimal digits, two each without anything between; nothing when `digits` is
/// empty or something else.
inline std::optional<std::string> bytes_of_hex(std::string_view digits) {
  if (digits.empty() || digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    const auto byte = whole_number(digits.substr(at, 2), 0U, 0xFFU, 16);
    if (!byte) return std::nullopt;
    bytes += static_cast<char>(*byte);
  }
  return bytes;
}

/// The four hexadecimal digits at `from` as a number, or -1.
inline std::int32_t hex4(std::string_view text, std::size_t from) {
  if (from + 4 > text.size()) return -1;
  return static_cast<std::int32_t>(
      whole_number(text.substr(from, 4), 0U, 0xFFFFU, 16).value_or(-1U));
}
