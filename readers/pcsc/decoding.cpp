#include "readers/pcsc/decoding.h"

#include "readers/pcsc/card_data_error.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/converter.h"
#include "util/text/hex.h"
#include "util/text/number.h"

namespace {

constexpr std::size_t kLargestGrowth = 3;  // from any of the character sets to UTF-8

std::string to_utf8(std::string_view bytes, const char* charset) {
  Converter converter("utf-8", charset);
  std::string text(kLargestGrowth * bytes.size(), '\0');
  char* out = text.data();
  std::size_t room = text.size();
  if (!converter.valid() || converter.convert(bytes, out, room) != 0)
    throw CardDataError(std::string("不是") + charset + "文本");
  text.resize(text.size() - room);
  return text;
}

std::string trim(const std::string& text) {
  static constexpr std::string_view kBlanks(" \t\r\n\0", 5);
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string decode_bcd(std::string_view bytes) {
  std::string digits = hexadecimal(bytes);
  digits.resize(std::min(digits.size(), digits.find('F')));
  if (digits.find_first_not_of("0123456789") != std::string::npos)
    throw CardDataError("不是BCD数字");
  return digits;
}

std::string decode_number(std::string_view bytes) {
  if (bytes.size() > sizeof(std::uint64_t)) throw CardDataError("数字超过8个字节");
  std::uint64_t number = 0;
  for (const char c : bytes) number = number << 8 | static_cast<unsigned char>(c);
  return bytes.empty() ? "" : std::to_string(number);
}

/// A date's parts as they stand in the text: runs of digits and runs of letters.
std::vector<std::string> date_parts(std::string_view text) {
  const auto is_part = [](char c) {
    return is_digit(c) || (ascii_lower(c) >= 'a' && ascii_lower(c) <= 'z') || !is_ascii({&c, 1});
  };
  std::vector<std::string> parts;
  bool inside = false;
  for (const char c : text) {
    if (is_part(c) && !inside) parts.emplace_back();
    inside = is_part(c);
    if (inside) parts.back() += ascii_lower(c);
  }
  return parts;
}

struct MonthName {
  const char* start;
  unsigned month;
};

// As Belgian cards have them, and the English ones; lower case but for letters outside ASCII.
constexpr MonthName kMonths[] = {
    {"jan", 1},  {"feb", 2}, {"fev", 2},  {"fé", 2},   {"fÉ", 2},   {"mar", 3},  {"maa", 3},
    {"mär", 3},  {"mÄr", 3}, {"mrt", 3},  {"apr", 4},  {"avr", 4},  {"mai", 5},  {"may", 5},
    {"mei", 5},  {"jun", 6}, {"juin", 6}, {"jul", 7},  {"juil", 7}, {"aug", 8},  {"aou", 8},
    {"aoû", 8},  {"aoÛ", 8}, {"sep", 9},  {"oct", 10}, {"okt", 10}, {"nov", 11}, {"dec", 12},
    {"dez", 12}, {"dé", 12}, {"dÉ", 12}};

/// The number of a part, or 0.
unsigned number_of(const std::string& part) { return whole_number(part, 0U).value_or(0); }

unsigned month_of(const std::string& part) {
  for (const MonthName& name : kMonths)
    if (part.rfind(name.start, 0) == 0) return name.month;
  return number_of(part);
}

/// Eight digits as three parts.
std::vector<std::string> split_digits(const std::string& digits, DateOrder order) {
  if (order == DateOrder::kYmd) return {digits.substr(0, 4), digits.substr(4, 2), digits.substr(6)};
  return {digits.substr(0, 2), digits.substr(2, 2), digits.substr(4)};
}

}  // namespace

std::string decode(std::string_view bytes, Decoding decoding) {
  switch (decoding) {
    case Decoding::kAscii:
      return trim(to_utf8(bytes, "ascii"));
    case Decoding::kLatin1:
      return trim(to_utf8(bytes, "latin1"));
    case Decoding::kCp1252:
      return trim(to_utf8(bytes, "cp1252"));
    case Decoding::kUtf8:
      return trim(to_utf8(bytes, "utf-8"));
    case Decoding::kUtf16be:
      return trim(to_utf8(bytes, "utf-16be"));
    case Decoding::kGbk:
      return trim(to_utf8(bytes, kGbkCharset));
    case Decoding::kHex:
      return hexadecimal(bytes);
    case Decoding::kBcd:
      return decode_bcd(bytes);
    case Decoding::kNumber:
      return decode_number(bytes);
  }
  return {};
}

std::string to_iso_date(std::string_view text, DateOrder order) {
  std::vector<std::string> parts = date_parts(text);
  if (parts.size() == 1 && parts[0].size() == 8) parts = split_digits(parts[0], order);
  if (parts.size() != 3) return std::string(text);
  const std::string& year = parts[order == DateOrder::kYmd ? 0 : 2];
  const unsigned month = month_of(parts[order == DateOrder::kMdy ? 0 : 1]);
  const unsigned day = number_of(parts[order == DateOrder::kYmd   ? 2
                                       : order == DateOrder::kDmy ? 0
                                                                  : 1]);
  if (year.size() != 4 || number_of(year) == 0 || month < 1 || month > 12 || day < 1 || day > 31)
    return std::string(text);
  const auto two_digits = [](unsigned number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
  };
  return year + "-" + two_digits(month) + "-" + two_digits(day);
}
