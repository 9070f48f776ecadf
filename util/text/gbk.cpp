#include "util/text/gbk.h"

#include "util/text/ascii.h"

namespace {

bool is_lead(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte > 0x80 && byte < 0xFF;
}

bool is_trail(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x40 && byte != 0x7F && byte != 0xFF;
}

}  // namespace

std::size_t gbk_char_length(std::string_view text) {
  if (static_cast<unsigned char>(text[0]) < 0x80) return 1;
  if (!is_lead(text[0]) || text.size() < 2) return 0;
  if (is_trail(text[1])) return 2;
  const bool is_long =
      text.size() >= 4 && is_digit(text[1]) && is_lead(text[2]) && is_digit(text[3]);
  return is_long ? 4 : 0;
}

std::string clean_gbk(std::string_view text, std::size_t max_bytes) {
  if (is_ascii(text)) return std::string(text.substr(0, max_bytes));
  std::string clean;
  while (!text.empty()) {
    const std::size_t length = gbk_char_length(text);
    const std::string_view character = length > 0 ? text.substr(0, length) : "?";
    if (clean.size() + character.size() > max_bytes) break;
    clean += character;
    text.remove_prefix(length > 0 ? length : 1);
  }
  return clean;
}
