#include "util/gbk.h"

std::size_t gbk_char_length(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return 1;
  if (lead == 0x80 || lead == 0xFF || text.size() < 2) return 0;
  const auto trail = static_cast<unsigned char>(text[1]);
  return trail >= 0x40 && trail != 0x7F && trail != 0xFF ? 2 : 0;
}

std::string clean_gbk(std::string_view text, std::size_t max_bytes) {
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
