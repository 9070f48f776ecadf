#include "util/text/utf8.h"

#include <algorithm>
#include <cstdint>

#include "util/text/ascii.h"

std::size_t utf8_char_length(std::string_view text) {
  constexpr std::uint32_t kLowestOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC0 || first > 0xF4 || text.size() < length) return 0;
  const std::string_view tail = text.substr(1, length - 1);
  if (!std::all_of(tail.begin(), tail.end(), is_utf8_tail)) return 0;
  std::uint32_t code = first & (0x7FU >> length);
  for (const char c : tail) code = code << 6 | (static_cast<unsigned char>(c) & 0x3FU);
  const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code >= kLowestOfLength[length] && code <= 0x10FFFF && !is_surrogate ? length : 0;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_char_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string clean_utf8(std::string_view text) {
  if (is_ascii(text)) return std::string(text);
  std::string clean;
  while (!text.empty()) {
    const std::size_t length = utf8_char_length(text);
    clean += length > 0 ? text.substr(0, length) : "?";
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return clean;
}
