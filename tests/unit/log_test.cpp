#include "util/log/log.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/text.h"
#include "util/log/repeat_limit.h"

namespace {

template <typename Action>
std::string output_of(Action action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

TEST(Log, DisarmsArgumentsCutsAtAWholeCharacterAndWritesUtf8WhereItIsAskedTo) {
  const std::string hostile = "a\nE: forged\r\x1b[31m\x7f\xc2\x9b";
  EXPECT_EQ(output_of([&] { print("\n[%s]\n", hostile.c_str()); }), "\n[a E: forged??[31m??]\n");
  EXPECT_EQ(output_of([] { print("%s|\n", "\nforged"); }), " forged|\n");
  std::string text = "xx";
  for (int i = 0; i < 600; ++i) text += "三";
  const std::string expected = text.substr(0, 2 + 3 * 332) + "...\n";
  EXPECT_EQ(output_of([&] { print("%s\n", text.c_str()); }), gbk(expected));
  set_log_charset_utf8(true);
  EXPECT_EQ(output_of([&] { print("%s \n", text.c_str()); }), expected);
  EXPECT_EQ(output_of([] { print("%s|\n", "\xff\xc2\x80"); }), "???|\n")
      << "U+0080 is a control character";
  set_log_charset_utf8(false);
}

TEST(RepeatLimit, AdmitsTwentyOfAKindASecondAndCountsTheRest) {
  RepeatLimit limit;
  const char kinds[2] = {};
  int admitted = 0;
  for (int i = 0; i < 100; ++i) admitted += limit.admit(&kinds[0], 5) ? 1 : 0;
  EXPECT_EQ(admitted, 20);
  EXPECT_TRUE(limit.admit(&kinds[1], 5));
  EXPECT_EQ(limit.take_surplus(5).kind, nullptr) << "the second is not over";
  const RepeatLimit::Surplus surplus = limit.take_surplus(6);
  EXPECT_EQ(surplus.kind, &kinds[0]);
  EXPECT_EQ(surplus.lines, 80U);
  EXPECT_EQ(limit.take_surplus(6).kind, nullptr);
  EXPECT_TRUE(limit.admit(&kinds[0], 6));
}

}  // namespace
