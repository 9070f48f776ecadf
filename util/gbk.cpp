#include "util/gbk.h"

#include <algorithm>

#include "util/ascii.h"
#include "util/text_conversion.h"

namespace {

/// Whether the text converts to its end.
bool is_gbk(std::string_view text) {
  std::string utf8;
  return gbk_to_utf8(text, utf8);
}

/// iconv takes this byte alone for the euro sign, whose UTF-8 form is longer than the room that
/// the reply's conversion allows for.
constexpr char kLoneEuroSign = '\x80';

/// Stands for a backslash that is none to the JSON document; no GBK text holds this byte.
constexpr char kMaskedBackslash = '\xFF';

/// Whether the text begins with an escape of a character outside ASCII, or of NUL.
bool begins_with_foreign_escape(std::string_view text) {
  const std::int32_t code = text.substr(0, 2) == "\\u" ? hex4(text, 2) : -1;
  return code == 0 || code >= 0x80;
}

}  // namespace

std::size_t gbk_char_length(std::string_view text) {
  if (is_ascii(text.substr(0, 1))) return 1;
  return text.size() >= 2 && text[0] != kLoneEuroSign && is_gbk(text.substr(0, 2)) ? 2 : 0;
}

std::string clean_gbk(std::string_view text, std::size_t max_bytes) {
  if (is_ascii(text)) return std::string(text.substr(0, max_bytes));
  const bool valid = is_gbk(text) && text.find(kLoneEuroSign) == std::string_view::npos;
  std::string clean;
  while (!text.empty()) {
    std::size_t length = is_ascii(text.substr(0, 1)) ? 1 : 2;
    if (length == 2 && !valid) length = gbk_char_length(text);
    const bool usable = length == 1 || (length == 2 && text[1] != '\\');
    const std::string_view character = usable ? text.substr(0, length) : "?";
    if (clean.size() + character.size() > max_bytes) break;
    clean += character;
    text.remove_prefix(length > 0 ? length : 1);
  }
  return clean;
}

std::string mask_backslashes(std::string_view gbk) {
  std::string masked;
  while (!gbk.empty()) {
    const bool pair = !is_ascii(gbk.substr(0, 1));
    const std::size_t length = std::min<std::size_t>(pair || gbk[0] == '\\' ? 2 : 1, gbk.size());
    masked += gbk.substr(0, length);
    if (begins_with_foreign_escape(gbk)) masked[masked.size() - 2] = kMaskedBackslash;
    if (pair && masked.back() == '\\') masked.back() = kMaskedBackslash;
    gbk.remove_prefix(length);
  }
  return masked;
}

std::string unmask_backslashes(std::string masked) {
  std::replace(masked.begin(), masked.end(), kMaskedBackslash, '\\');
  return masked;
}
