#include "tools/libcheck/text.h"

#include <algorithm>
#include <cstdio>

#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/gbk.h"
#include "util/text/utf8.h"

namespace {

std::string escaped(char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned char>(byte));
  return text;
}

}  // namespace

std::string readable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    std::size_t length = gbk_char_length(text);
    std::string character = shown(GbkView(text.substr(0, length))).bytes();
    if (length == 0 || is_control(text[0]) ||
        character.find(kReplacementCharacter) != std::string::npos) {
      character = escaped(text[0]);
      length = 1;
    }
    out += character;
    text.remove_prefix(length);
  }
  return out;
}

std::string readable_request(std::string_view text) {
  return is_utf8(text) ? std::string(text) : readable(text);
}

bool looks_like_chinese_utf8(std::string_view text) {
  const auto begins_three = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xF0) == 0xE0;
  };
  return is_utf8(text) && std::any_of(text.begin(), text.end(), begins_three);
}

std::string shortened(std::string_view utf8, std::size_t columns) {
  std::string out;
  std::size_t count = 0;
  for (const char byte : utf8) {
    if (!is_utf8_tail(byte) && ++count > columns) return out + "...";
    out += is_control(byte) ? escaped(byte) : std::string(1, byte);
  }
  return out;
}
