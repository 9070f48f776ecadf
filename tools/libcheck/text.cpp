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

/// Length of the UTF-8 character that `lead` begins, 0 when it begins none.
std::size_t utf8_length(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  if (byte < 0x80) return 1;
  if (byte >= 0xC2 && byte < 0xE0) return 2;
  if (byte >= 0xE0 && byte < 0xF0) return 3;
  return byte >= 0xF0 && byte < 0xF5 ? 4 : 0;
}

}  // namespace

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text[0]);
    if (length == 0 || text.size() < length) return false;
    for (std::size_t i = 1; i < length; ++i)
      if (!is_utf8_tail(text[i])) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string readable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    std::size_t length = gbk_char_length(text);
    std::string character;
    library_text_to_utf8(text.substr(0, length), character);
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
  return is_utf8(text) &&
         std::any_of(text.begin(), text.end(), [](char byte) { return utf8_length(byte) == 3; });
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
