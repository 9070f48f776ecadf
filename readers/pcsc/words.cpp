#include "readers/pcsc/words.h"

#include <algorithm>

#include "util/text/ascii.h"
#include "util/text/hex.h"
#include "util/text/number.h"

void Words::skip_blanks() {
  left.remove_prefix(std::min(left.find_first_not_of(" \t"), left.size()));
}

std::string_view Words::next() {
  const std::string_view word = peek();
  left.remove_prefix(word.size());
  skip_blanks();
  return word;
}

bool Words::take(std::string_view word) {
  if (peek() != word) return false;
  next();
  return true;
}

unsigned Words::number(const char* what, unsigned least, unsigned most) {
  const std::string word(next());
  const bool is_hex = word.rfind("0x", 0) == 0;
  const auto value = whole_number(word.substr(is_hex ? 2 : 0), least, most, is_hex ? 16 : 10);
  if (value) return *value;
  throw Mistake(std::string(what) + "“" + word + "”无效，应为" + std::to_string(least) + "至" +
                std::to_string(most) + "的整数");
}

std::optional<unsigned> Words::optional_number(const char* what, unsigned least, unsigned most) {
  if (left.empty() || !is_digit(left[0])) return std::nullopt;
  return number(what, least, most);
}

std::string Words::bytes(const char* what, std::size_t least, std::size_t most) {
  std::string bytes;
  while (const auto more = bytes_of_hex(peek())) {
    bytes += *more;
    next();
  }
  if (bytes.size() >= least && bytes.size() <= most) return bytes;
  throw Mistake(std::string(what) + "应为" + std::to_string(least) + "至" + std::to_string(most) +
                "个字节的十六进制数" + (empty() ? "" : "，却是“" + std::string(peek()) + "”"));
}
