#include "util/json_source.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>

#include "util/ascii.h"

namespace {

constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_surrogate(std::uint32_t code, std::uint32_t first) {
  return code >= first && code < first + 0x400;
}

void append_utf8(std::string& out, std::uint32_t code) {
  const auto tail = [&out, code](unsigned shift) {
    out += static_cast<char>(0x80 | ((code >> shift) & 0x3F));
  };
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
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

/// Appends a byte of a string's content to the rewritten text, where cJSON reads it back.
void append_content(std::string& out, char byte) {
  if (byte == '"' || byte == '\\') out += '\\';
  out += byte;
}

/// strtod and "%f" of the "C" locale, whatever locale a reader library may have set.
double parse_double(const std::string& text) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(text.c_str(), nullptr, c_locale);
}

std::string print_double(double value) {
  char text[400];  // the largest double has 309 digits before the point
  const auto end =
      std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, 6);
  return {std::begin(text), end.ptr};
}

std::string print_integer(bool negative, std::string_view digits) {
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size() - 1));
  return (negative && digits != "0" ? "-" : "") + std::string(digits);
}

/// The low 32 bits of the integer, of whatever length.
double low_bits(bool negative, std::string_view digits) {
  std::uint32_t value = 0;
  for (const char digit : digits) value = value * 10 + static_cast<std::uint32_t>(digit - '0');
  return static_cast<std::int32_t>(negative ? 0U - value : value);
}

}  // namespace

bool JsonSource::rewrite() {
  rewritten.reserve(source.size() + 1);
  do {
    if (!next_token()) return false;
  } while (depth > 0);
  return true;
}

std::size_t JsonSource::source_position(std::size_t offset) const {
  JsonSource again(source);
  std::size_t start = 0;
  do {
    again.skip_white_space();
    start = again.at;
  } while (again.next_token() && again.rewritten.size() <= offset);
  return start;
}

void JsonSource::skip_white_space() {
  while (at < source.size() && static_cast<unsigned char>(source[at]) <= ' ') ++at;
}

bool JsonSource::next_token() {
  skip_white_space();
  if (at == source.size()) return false;
  switch (const char c = source[at]) {
    case '"':
      return string();
    case 't':
      return literal("true");
    case 'f':
      return literal("false");
    case 'n':
      return literal("null");
    case '{':
    case '[':
      ++depth;
      break;
    case '}':
    case ']':
      --depth;
      break;
    case ',':
    case ':':
      break;
    default:
      return (c == '-' || is_digit(c)) && number();
  }
  rewritten += source[at++];
  return true;
}

bool JsonSource::literal(std::string_view word) {
  if (source.substr(at, word.size()) != word) return false;
  rewritten += word;
  at += word.size();
  return true;
}

std::size_t JsonSource::digits(std::size_t from) const {
  std::size_t end = from;
  while (end < source.size() && is_digit(source[end])) ++end;
  return end;
}

bool JsonSource::number() {
  const bool negative = source[at] == '-';
  const std::size_t first = at + (negative ? 1 : 0);
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
    const std::size_t non_zero = source.find_first_not_of('0', exponent);
    is_integer = is_integer && non_zero >= end;
  }
  if (is_integer) {
    const std::string_view whole = source.substr(first, integer_end - first);
    found_numbers.push_back({print_integer(negative, whole), low_bits(negative, whole)});
  } else {
    const double value = parse_double(std::string(source.substr(at, end - at)));
    if (!std::isfinite(value)) return false;
    found_numbers.push_back({print_double(value), value});
  }
  rewritten += "0 ";
  at = end;
  return true;
}

bool JsonSource::string() {
  const std::size_t start = at++;
  rewritten += '"';
  std::size_t quote = source.find('"', at);
  while (quote != std::string_view::npos) {
    const std::string_view ahead = source.substr(at, quote - at);
    const std::size_t plain = std::min(ahead.find('\\'), ahead.size());
    rewritten += ahead.substr(0, plain);
    at += plain;
    if (at++ == quote) {
      rewritten += '"';
      return true;
    }
    escape();
    if (at > quote) quote = source.find('"', at);
  }
  at = start;
  return false;
}

/// Reads what follows a backslash; the string does not end there.
void JsonSource::escape() {
  const char c = source[at];
  if (c == 'u' && hex4(source, at + 1) >= 0) {
    const std::uint32_t code = unicode_escape();
    if (code < 0x80) {
      append_content(rewritten, static_cast<char>(code));
    } else {
      append_utf8(rewritten, code);
    }
    return;
  }
  constexpr std::string_view kLetters = "bfnrt";
  constexpr std::string_view kControls = "\b\f\n\r\t";
  const std::size_t control = kLetters.find(c);
  append_content(rewritten, control == std::string_view::npos ? c : kControls[control]);
  ++at;
}

/// Reads "uXXXX", or the two escapes of a surrogate pair. Code 0 would end a C string, and half a
/// surrogate pair has no UTF-8 form: both become the replacement character rather than cut or
/// spoil the text.
std::uint32_t JsonSource::unicode_escape() {
  const auto code = static_cast<std::uint32_t>(hex4(source, at + 1));
  at += 5;
  if (is_surrogate(code, 0xD800) && source.substr(at, 2) == "\\u") {
    const std::int32_t low = hex4(source, at + 2);
    if (low >= 0 && is_surrogate(static_cast<std::uint32_t>(low), 0xDC00)) {
      at += 6;
      return 0x10000 + ((code - 0xD800) << 10) + (static_cast<std::uint32_t>(low) - 0xDC00);
    }
  }
  const bool unusable = code == 0 || is_surrogate(code, 0xD800) || is_surrogate(code, 0xDC00);
  return unusable ? kReplacementCharacter : code;
}
