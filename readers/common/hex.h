#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

/// Bytes as upper-case hexadecimal digits, two each.
inline std::string hexadecimal(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 0xF];
  }
  return digits;
}

/// The bytes of hexadecimal digits, two each without anything between; nothing when `digits` is
/// empty or something else.
inline std::optional<std::string> bytes_of_hex(std::string_view digits) {
  if (digits.empty() || digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    unsigned byte = 0;
    const char* end = digits.data() + at + 2;
    if (std::from_chars(digits.data() + at, end, byte, 16).ptr != end) return std::nullopt;
    bytes += static_cast<char>(byte);
  }
  return bytes;
}
