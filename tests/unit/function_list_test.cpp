#include "libs/function_list.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(FunctionList, DecodesFromTheEnd) {
  const struct {
    const char* answer;
    std::string bytes;
  } cases[] = {
      {"72656164636172646261730a", "readcardbas\n"},
      {"abc", "\x0a\xbc"},
      {"4A4b", "JK"},
      {"", ""},
      {"41x42", std::string("\0\0\x42", 3)},
      {"414243x", std::string("\0\0\0\0", 4)},
  };
  for (const auto& [answer, bytes] : cases)
    EXPECT_EQ(decode_function_list(answer, 100), bytes) << answer;
  EXPECT_EQ(decode_function_list("414243", 2), "AB");
}

}  // namespace
