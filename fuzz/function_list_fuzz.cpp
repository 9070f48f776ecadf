// The decoding of a reader library's function list, against one that goes from front to end.
// Input: the limit in bytes, one byte, then the library's answer.

#include <string>

#include "fuzz/input.h"
#include "libs/function_list.h"

namespace {

std::string decoded(std::string answer) {
  const std::size_t last_other = answer.find_last_not_of("0123456789abcdefABCDEF");
  if (last_other != std::string::npos) answer.replace(0, last_other + 1, last_other + 1, '0');
  if (answer.size() % 2 != 0) answer.insert(0, 1, '0');
  std::string bytes;
  for (std::size_t i = 0; i < answer.size(); i += 2)
    bytes += static_cast<char>(std::stoi(answer.substr(i, 2), nullptr, 16));
  return bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t limit = input.byte();
  const std::string answer = input.rest();
  require(decode_function_list(answer, limit) == decoded(answer).substr(0, limit),
          "both ways give the same list");
  return 0;
}
