#pragma once

#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

/// The whole number that the whole text is, in digits of that base, when it lies from `lowest` to
/// `highest`. Nothing when it is another, or has blanks, a "+" or a prefix such as 0x; leading
/// zeros are taken.
template <class Number>
std::optional<Number> whole_number(std::string_view text, Number lowest,
                                   Number highest = std::numeric_limits<Number>::max(),
                                   int base = 10) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number, base);
  const bool whole = error == std::errc() && stopped == end;
  return whole && number >= lowest && number <= highest ? std::optional(number) : std::nullopt;
}
