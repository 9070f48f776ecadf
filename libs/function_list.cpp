#include "libs/function_list.h"

#include <algorithm>

#include "util/text/ascii.h"
#include "util/text/hex.h"

namespace {

/// What may stand between two names.
constexpr std::string_view kSeparators = " \t\r\n,;|\"'()[]{}";

}  // namespace

std::string decode_function_list(std::string_view answer, std::size_t limit) {
  std::string bytes((answer.size() + 1) / 2, '\0');
  for (std::size_t from_end = 0; from_end < answer.size(); ++from_end) {
    const int digit = hex_value(answer[answer.size() - 1 - from_end]);
    if (digit < 0) break;
    char& byte = bytes[bytes.size() - 1 - from_end / 2];
    byte = static_cast<char>(from_end % 2 == 0 ? digit : byte | digit << 4);
  }
  bytes.resize(std::min(bytes.size(), limit));
  return bytes;
}

std::vector<std::string> function_names(std::string_view list) {
  list = list.substr(0, list.find('\0'));
  std::vector<std::string> names;
  std::size_t begin = list.find_first_not_of(kSeparators);
  while (begin != std::string_view::npos) {
    const std::size_t end = std::min(list.find_first_of(kSeparators, begin), list.size());
    names.emplace_back(list.substr(begin, end - begin));
    begin = list.find_first_not_of(kSeparators, end);
  }
  return names;
}

bool is_reserved_name(std::string_view name) {
  constexpr std::string_view kPrefix = kReservedPrefix;
  return name.size() >= kPrefix.size() &&
         std::equal(kPrefix.begin(), kPrefix.end(), name.begin(),
                    [](char wanted, char given) { return wanted == ascii_lower(given); });
}
