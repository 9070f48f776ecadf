#include "tests/support/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

#include "util/json/failure_reply.h"
#include "util/text/conversion.h"
#include "util/text/converter.h"
#include "util/text/gbk.h"
#include "util/text/messages.h"

namespace {

TEST(TextConversion, MakesOfEveryPairWhatIconvMakesOfIt) {
  Converter converter("utf-8", kGbkCharset);
  for (int code = 0x8000; code <= 0xFFFF; ++code) {
    const char pair[] = {static_cast<char>(code >> 8), static_cast<char>(code)};
    std::string_view in(pair, 2);
    char expected[8] = {};
    char* end = expected;
    std::size_t room = sizeof expected;
    const int error = converter.convert(in, end, room);
    char out[8];
    EXPECT_EQ(gbk2utfa(pair, 2, out, sizeof out) == 0, error == 0) << std::hex << code;
    EXPECT_EQ(std::string_view(out, 8), std::string_view(expected, 8)) << std::hex << code;
  }
}

TEST(TextConversion, UsesTwiceTheSourceOfTheDestination) {
  char out[2001];
  std::memset(out, 'x', sizeof out);
  cpy2utfa(out, std::string(500, 'a').c_str());
  EXPECT_EQ(std::string(out), std::string(500, 'a'));
  EXPECT_EQ(std::string(out + 500, 501), std::string(500, '\0') + "x");

  std::string source;
  for (int i = 0; i < 500; ++i) source += gbk("读");
  cpy2utfa(out, source.c_str());
  EXPECT_EQ(std::strlen(out), 1500U);
  EXPECT_EQ(out[2000], 'x');

  cpy2utfa(out, "");
  EXPECT_EQ(std::strlen(out), 1500U) << "an empty source writes nothing";
}

TEST(TextConversion, ConvertsWhateverALibraryWrites) {
  for (const auto& [text, expected, is_gbk] :
       {std::tuple(gbk("{\"name\":\"张三\"}"), "{\"name\":\"张三\"}", true),
        {"\x82\x31\xeb\x39" + gbk("三"), "\u3DC8三", false},  // beyond GBK, in GB18030's four bytes
        {gbk("三") + "\x81\x30\"\xff" + gbk("三"), "三\uFFFD0\"\uFFFD三", false},
        {"\x80" + gbk("三"), "\uFFFD三", false}}) {
    std::string out;
    EXPECT_EQ(library_text_to_utf8(GbkView(text), out), is_gbk) << expected;
    EXPECT_EQ(out, expected);
  }
  const std::string strays(1023, '\xff');
  std::string out(kLargestGrowth * strays.size() + 1, 'x');
  EXPECT_FALSE(library_text_to_utf8(GbkView(strays), {out.data(), out.size()}));
  EXPECT_EQ(std::strlen(out.c_str()), out.size() - 1);
}

TEST(TextConversion, ReplacesAndCutsByWholeCharacters) {
  EXPECT_EQ(utf8_to_gbk(Utf8View("a\U0001F600b\xff\xfe三\xe4\xb8")).bytes(),
            "a?b??" + gbk("三") + "?");
  EXPECT_EQ(clean_gbk(gbk("中文a"), 3), gbk("中"));
  EXPECT_EQ(clean_gbk(gbk("中文a"), 5), gbk("中文a"));
  EXPECT_EQ(clean_gbk("a\xff\x80z\xd6\"x\x81\x7f\xd6"), "a??z?\"x?\x7f?");
  EXPECT_EQ(clean_gbk("\x81\x30\x81\x30", 4), "\x81\x30\x81\x30");
  EXPECT_EQ(clean_gbk("\x81\x30\x81\x30z", 3), "");
}

TEST(Reply, IsValidWhateverTheReason) {
  char out[64];
  write_failure(out, Gbk("a\"b\\\n" + gbk("中诚") + "\xd6"));
  EXPECT_EQ(out, R"({"result":"false","errmsg":"a\"b\\\n)" + gbk("中诚") + R"(?"})");
  write_failure({out, 40}, Gbk(gbk("1234567中文")));
  EXPECT_EQ(out, gbk(R"({"result":"false","errmsg":"1234567中"})"));
  write_failure({out, 40}, GbkView("12345678\""));
  EXPECT_STREQ(out, R"({"result":"false","errmsg":"12345678"})");
}

}  // namespace
