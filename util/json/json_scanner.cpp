#include "util/json/json_scanner.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "util/text/ascii.h"

namespace {

constexpr int kDeepest =
    1000;  // levels of arrays and objects: what cJSON, which readers use, takes
constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

bool is_surrogate(std::uint32_t code, std::uint32_t first) {
  return code >= first && code < first + 0x400;
}

void append_utf8(std::string& out, std::uint32_t code) {
  const auto tail = [&out, code](unsigned shift) {
    out += static_cast<char>(0x80 | ((code >> shift) & 0x3F));
  };
  if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    tail(0);
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    tail(12);
    tail(6);
    tail(0);
  }
}

/// strtod of the "C" locale, whatever locale a reader library may have set.
double parse_double(const std::string& text) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, c_locale);
}

void append_double(std::string& out, double value) {
  char text[400];  // the largest double has 309 digits before the point
  const auto end =
      std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, 6);
  out.append(std::begin(text), end.ptr);
}

/// Which bytes of a string's content are copied as they are: all but the two that end or escape,
/// and control bytes; in GBK also only ASCII.
class PlainBytes {
 public:
  explicit constexpr PlainBytes(unsigned limit) {
    for (unsigned byte = 0x20; byte < limit; ++byte) plain[byte] = byte != '"' && byte != '\\';
  }
  bool operator()(char c) const { return plain[static_cast<unsigned char>(c)]; }

 private:
  std::array<bool, 256> plain{};
};

constexpr PlainBytes kPlainInUtf8(0x100);
constexpr PlainBytes kPlainInGbk(0x80);

}  // namespace

bool JsonScanner::scan() {
  print.reserve(source.size() + 64);  // room for what is usually added
  return value();
}

void JsonScanner::skip_white_space() {
  while (at < source.size() && static_cast<unsigned char>(source[at]) <= ' ') ++at;
}

bool JsonScanner::take(char c) {
  skip_white_space();
  if (at >= source.size() || source[at] != c) return false;
  print += c;
  ++at;
  return true;
}

bool JsonScanner::value() {
  skip_white_space();
  switch (const char c = next()) {
    case '"':
      return string();
    case '{':
      return object();
    case '[':
      return array();
    case 't':
      return literal("true");
    case 'f':
      return literal("false");
    case 'n':
      return literal("null");
    default:
      return (c == '-' || is_digit(c)) && number();
  }
}

bool JsonScanner::object() {
  if (++depth > kDeepest) return false;
  take('{');
  if (!take('}')) {
    do {
      if (!member()) return false;
    } while (take(','));
    if (!take('}')) return false;
  }
  --depth;
  return true;
}

bool JsonScanner::member() {
  skip_white_space();
  JsonMember place{print.size(), 0, 0, 0};
  if (next() != '"' || !string() || !take(':')) return false;
  place.value = print.size();
  if (!value()) return false;
  place.end = print.size();
  place.number = last_number;
  if (depth == 1) found.push_back(place);
  return true;
}

bool JsonScanner::array() {
  if (++depth > kDeepest) return false;
  take('[');
  if (!take(']')) {
    do {
      if (!value()) return false;
    } while (take(','));
    if (!take(']')) return false;
  }
  --depth;
  return true;
}

bool JsonScanner::literal(std::string_view word) {
  if (source.substr(at, word.size()) != word) return false;
  print += word;
  at += word.size();
  return true;
}

bool JsonScanner::string() {
  const std::size_t start = at++;
  print += '"';
  string_content();
  if (next() == '"') {
    print += '"';
    ++at;
    return true;
  }
  at = start;
  return false;
}

/// Reads up to the closing quotation mark, or to the end of the text when there is none.
void JsonScanner::string_content() {
  const PlainBytes& is_plain = charset == Charset::kUtf8 ? kPlainInUtf8 : kPlainInGbk;
  while (at < source.size()) {
    std::size_t end = at;
    while (end < source.size() && is_plain(source[end])) ++end;
    print.append(source, at, end - at);
    at = end;
    if (at == source.size() || source[at] == '"') return;
    if (source[at] == '\\') {
      if (!escape()) return;
    } else {
      const std::size_t length = char_length(source.substr(at), charset);
      append_escaped(print, source.substr(at, length), charset);
      at += length;
    }
  }
}

/// Reads a backslash and what it escapes; one without meaning is dropped, and what follows it reads
/// on. False at the end of the text.
bool JsonScanner::escape() {
  constexpr std::string_view kKept = "bfnrt\"\\";  // print as they were written
  if (at + 1 >= source.size()) {
    at = source.size();
    return false;
  }
  if (source[at + 1] == 'u' && unicode_escape()) return true;
  if (kKept.find(source[at + 1]) == std::string_view::npos) {
    ++at;
  } else {
    print += source.substr(at, 2);
    at += 2;
  }
  return true;
}

/// Reads "\uXXXX", or the two escapes of a surrogate pair; false when no four digits follow. Half a
/// surrogate pair has no character: it becomes the replacement character. So does code 0 in UTF-8,
/// where readers get the text as a C string. In GBK an escape outside ASCII stays an escape.
bool JsonScanner::unicode_escape() {
  const std::int32_t first = hex4(source, at + 2);
  if (first < 0) return false;
  auto code = static_cast<std::uint32_t>(first);
  std::size_t length = 6;
  const std::int32_t second = source.substr(at + 6, 2) == "\\u" ? hex4(source, at + 8) : -1;
  if (is_surrogate(code, 0xD800) && second >= 0 &&
      is_surrogate(static_cast<std::uint32_t>(second), 0xDC00)) {
    code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<std::uint32_t>(second) - 0xDC00);
    length = 12;
  } else if (is_surrogate(code, 0xD800) || is_surrogate(code, 0xDC00) ||
             (code == 0 && charset == Charset::kUtf8)) {
    code = kReplacementCharacter;
  }
  if (code < 0x80) {
    const char byte = static_cast<char>(code);
    append_escaped(print, {&byte, 1}, charset);
  } else if (charset == Charset::kUtf8) {
    append_utf8(print, code);
  } else if (code == kReplacementCharacter) {
    print += "\\ufffd";
  } else {
    print += source.substr(at, length);
  }
  at += length;
  return true;
}

bool JsonScanner::number() {
  const auto digits = [this](std::size_t from) {
    while (from < source.size() && is_digit(source[from])) ++from;
    return from;
  };
  const std::size_t from = at;
  const std::size_t first = at + (source[at] == '-' ? 1 : 0);
  const std::size_t integer_end = digits(first);
  if (integer_end == first) return false;
  std::size_t end = integer_end;
  bool is_integer = true;
  if (end < source.size() && source[end] == '.') {
    end = digits(end + 1);
    is_integer = end == integer_end + 1;
  }
  if (end < source.size() && (source[end] == 'e' || source[end] == 'E')) {
    std::size_t exponent = end + 1;
    if (exponent < source.size() && (source[exponent] == '+' || source[exponent] == '-'))
      ++exponent;
    end = digits(exponent);
    if (end == exponent) return false;
    is_integer = is_integer && source.find_first_not_of('0', exponent) >= end;
  }
  at = end;
  if (print_number(from, integer_end, is_integer)) return true;
  at = from;
  return false;
}

/// Prints the number that reaches from `from` to the current position; false when it is beyond the
/// range of a double.
bool JsonScanner::print_number(std::size_t from, std::size_t integer_end, bool is_integer) {
  if (!is_integer) {
    last_number = parse_double(std::string(source.substr(from, at - from)));
    if (!std::isfinite(last_number)) return false;
    append_double(print, last_number);
    return true;
  }
  const bool negative = source[from] == '-';
  std::string_view digits = source.substr(from, integer_end - from).substr(negative ? 1 : 0);
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size() - 1));
  if (negative && digits != "0") print += '-';
  print += digits;
  return true;
}
