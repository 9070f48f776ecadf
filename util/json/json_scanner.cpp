#include "util/json/json_scanner.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "util/text/ascii.h"
#include "util/text/hex.h"

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

}  // namespace

bool JsonScanner::scan() {
  print.reserve(source.size() + 64);  // room for what is usually added
  found.reserve(8);                   // more than most documents have
  if (!value()) return false;
  leave_out(at);
  return true;
}

/// Prints what has been read so far, and passes over what reaches from there to `end`.
void JsonScanner::leave_out(std::size_t end) {
  print.append(source, copied, at - copied);
  at = copied = end;
}

void JsonScanner::leave_out_white_space() {
  std::size_t end = at;
  while (end < source.size() && static_cast<unsigned char>(source[end]) <= ' ') ++end;
  leave_out(end);
}

bool JsonScanner::value() {
  skip_white_space();
  switch (const char c = next()) {
    case '"':
      return string();
    case '{':
      return items(&JsonScanner::member, '}');
    case '[':
      return items(&JsonScanner::value, ']');
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

/// Reads an object or an array, from its opening bracket.
bool JsonScanner::items(bool (JsonScanner::*item)(), char closing) {
  if (++depth > kDeepest) return false;
  ++at;
  if (!take(closing)) {
    do {
      if (!(this->*item)()) return false;
    } while (take(','));
    if (!take(closing)) return false;
  }
  --depth;
  return true;
}

bool JsonScanner::member() {
  skip_white_space();
  JsonMember place{printed(), 0, 0, 0};
  if (next() != '"' || !string() || !take(':')) return false;
  place.value = printed();
  if (!value()) return false;
  place.end = printed();
  place.number = last_number;
  if (depth == 1) found.push_back(place);
  return true;
}

bool JsonScanner::literal(std::string_view word) {
  if (source.substr(at, word.size()) != word) return false;
  at += word.size();
  return true;
}

/// Reads a string, from its opening quotation mark; stays there when it has no closing one.
bool JsonScanner::string() {
  const std::size_t start = at++;
  while ((at += plain_length(source.substr(at), charset)) < source.size()) {
    if (source[at] == '"') {
      ++at;
      return true;
    }
    if (source[at] == '\\') {
      escape();
    } else {
      leave_out(at + 1);
      append_escaped(print, source.substr(at - 1, 1), charset);
    }
  }
  at = start;
  return false;
}

/// Reads a backslash and what it escapes; one without meaning is dropped, and what follows it reads
/// on.
void JsonScanner::escape() {
  constexpr std::string_view kKept = "bfnrt\"\\";  // print as they were written
  if (at + 1 >= source.size()) {
    at = source.size();
  } else if (source[at + 1] == 'u' && unicode_escape()) {
    return;
  } else if (kKept.find(source[at + 1]) == std::string_view::npos) {
    leave_out(at + 1);
  } else {
    at += 2;
  }
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
  if (code >= 0x80 && charset == Charset::kGbk && code != kReplacementCharacter) {
    at += length;
    return true;
  }
  leave_out(at + length);
  if (code < 0x80) {
    const char byte = static_cast<char>(code);
    append_escaped(print, {&byte, 1}, charset);
  } else if (charset == Charset::kUtf8) {
    append_utf8(print, code);
  } else {
    print += "\\ufffd";
  }
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
  const bool has_zeros = source[first] == '0' && (first != from || end != first + 1);
  if (end != integer_end || has_zeros) return print_number(end, integer_end, is_integer);
  at = end;
  return true;
}

/// Prints the number that reaches from the current position to `end`; false when it is beyond the
/// range of a double.
bool JsonScanner::print_number(std::size_t end, std::size_t integer_end, bool is_integer) {
  const std::size_t from = at;
  if (!is_integer) {
    last_number = parse_double(std::string(source.substr(from, end - from)));
    if (!std::isfinite(last_number)) return false;
    leave_out(end);
    append_double(print, last_number);
    return true;
  }
  leave_out(end);
  const bool negative = source[from] == '-';
  std::string_view digits = source.substr(from, integer_end - from).substr(negative ? 1 : 0);
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size() - 1));
  if (negative && digits != "0") print += '-';
  print += digits;
  return true;
}
