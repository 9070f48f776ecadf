#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Whether the byte is one of a UTF-8 character behind its first.
constexpr bool is_utf8_tail(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/// The beginning of the UTF-8 text, of at most `longest` bytes and whole characters.
constexpr std::string_view cut_utf8(std::string_view text, std::size_t longest) {
  if (text.size() <= longest) return text;
  while (longest > 0 && is_utf8_tail(text[longest])) --longest;
  return text.substr(0, longest);
}

/// Length in bytes of the character at the start of `text` (not empty) in UTF-8, 0 when the bytes
/// begin none.
std::size_t utf8_char_length(std::string_view text);

bool is_utf8(std::string_view text);

/// `text` as UTF-8, with a "?" for every byte that begins no character.
std::string clean_utf8(std::string_view text);
