#pragma once

/// Lower case of an ASCII letter, whatever the locale; every other byte as it is.
constexpr char ascii_lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}
