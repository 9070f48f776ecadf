#pragma once

#include <string_view>

/// Whether the byte is one of a UTF-8 character behind its first.
constexpr bool is_utf8_tail(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/// The beginning of the UTF-8 text, of at most `longest` bytes and whole characters.
constexpr std::string_view cut_utf8(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && is_utf8_tail(text[longest])) --longest;
  return text.substr(0, longest);
}
