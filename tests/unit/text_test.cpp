#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include "util/gbk.h"
#include "util/json_object.h"
#include "util/local_address.h"
#include "util/messages.h"
#include "util/reply.h"
#include "util/text_conversion.h"

namespace {

TEST(TextConversion, ConvertsGbkToUtf8) {
  char out[8];
  EXPECT_EQ(gbk2utfa("中", 2, out, sizeof out), 0);
  EXPECT_STREQ(out, u8"中");
  EXPECT_EQ(gbk2utfa("a\xd6", 2, out, sizeof out), -1) << "half a character";
  EXPECT_STREQ(out, "a");
  std::memset(out, 'x', sizeof out);
  EXPECT_EQ(gbk2utfa("中中", 4, out, 4), -1) << "no room";
  EXPECT_EQ(std::string_view(out, 5), std::string_view(u8"中\0x", 5));
}

TEST(TextConversion, UsesTwiceTheSourceOfTheDestination) {
  char out[2001];
  std::memset(out, 'x', sizeof out);
  cpy2utfa(out, std::string(500, 'a').c_str());
  EXPECT_EQ(std::string(out), std::string(500, 'a'));
  EXPECT_EQ(std::string(out + 500, 501), std::string(500, '\0') + "x");

  std::string source;
  for (int i = 0; i < 500; ++i) source += "读";
  cpy2utfa(out, source.c_str());
  EXPECT_EQ(std::strlen(out), 1500U);
  EXPECT_EQ(out[2000], 'x');

  cpy2utfa(out, "");
  EXPECT_EQ(std::strlen(out), 1500U) << "an empty source writes nothing";
}

TEST(Gbk, CutsAtWholeCharactersAndReplacesStrayBytes) {
  EXPECT_EQ(clean_gbk("中文a", 3), "中");
  EXPECT_EQ(clean_gbk("中文a", 5), "中文a");
  EXPECT_EQ(clean_gbk("a\xff\x80z\xd6"), "a??z?");
  EXPECT_EQ(clean_gbk("\xd6\"x"), "?\"x");
  EXPECT_EQ(clean_gbk("\xaa\xa1z中"), "??z中") << "a pair that is no character";
  EXPECT_EQ(clean_gbk("\xd5\\中"), "?中") << "a second byte that reads as a backslash";
}

TEST(Gbk, CarriesBackslashesThroughTheJsonDocument) {
  const std::string reply = "{\"n\":\"\xd5\\\",\"e\":\"\\u4e2d\\\\u4e2d\\\"\"}";
  const neb::CJsonObject json(mask_backslashes(reply));
  EXPECT_EQ(unmask_backslashes(json.ToString()), reply);
}

TEST(Reply, IsValidWhateverTheReason) {
  char out[64];
  write_failure(out, sizeof out, "a\"b\\\n中\xd6");
  EXPECT_STREQ(out, R"({"result":"false","errmsg":"a\"b\\\u000a中?"})");
  write_failure(out, 40, "1234567中文");
  EXPECT_STREQ(out, R"({"result":"false","errmsg":"1234567中"})");
  EXPECT_EQ(exception_text(messages::kException, nullptr).find("错误类型："), 0U);
  const std::runtime_error error("why");
  EXPECT_NE(exception_text(messages::kException, &error).find("runtime_error 错误信息 ：why "),
            std::string::npos);
}

TEST(LocalAddress, AppendsWholeAddressesWithinTheBuffer) {
  char all[kAddressListSize] = "x";
  ASSERT_EQ(get_localip(all), 0);
  EXPECT_EQ(all[0], 'x');
  EXPECT_NE(std::string(all).find("127.0.0.1;"), std::string::npos);
  char small[8] = "";
  EXPECT_EQ(get_localip(small, sizeof small), -1);
  EXPECT_STREQ(small, "");
}

}  // namespace
