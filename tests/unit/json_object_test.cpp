#include "util/json/json_object.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/text.h"

namespace {

using neb::CJsonObject;

struct TextCase {
  const char* in;
  const char* out;
};

TEST(JsonObject, PrintsAsParsed) {
  const TextCase cases[] = {
      {"[3,-5,0,-0,007]", "[3,-5,0,0,7]"},
      {"[9223372036854775807,-9223372036854775808,18446744073709551615]",
       "[9223372036854775807,-9223372036854775808,18446744073709551615]"},
      {"[123456789012345678901234567890]", "[123456789012345678901234567890]"},
      {"[3.5,100.0,7e2,-0.5e-1,7.0]", "[3.500000,100.000000,700.000000,-0.050000,7.000000]"},
      {"[7e0,7E+00,12.]", "[7,7,12]"},
      {"[1e-400]", "[0.000000]"},
      {R"(["\b\f\n\r\t\"\\\/"])", R"(["\b\f\n\r\t\"\\/"])"},
      {R"(["\a\q\'"])", R"(["aq'"])"},
      {"[\"\t\x01\x1f\x7f\"]", "[\"\\t\\u0001\\u001f\x7f\"]"},
      {R"(["\u0041\u4e2d\ud83d\ude00"])", "[\"A\xe4\xb8\xad\xf0\x9f\x98\x80\"]"},
      {R"(["\u0022\u005c"])", R"(["\"\\"])"},
      {R"(["a\u0000b\ud800c\udc00"])",
       "[\"a\xef\xbf\xbd"
       "b\xef\xbf\xbd"
       "c\xef\xbf\xbd\"]"},
      {R"(["\u12g4"])", R"(["u12g4"])"},
      {"[\"中文\xff\x80\"]", "[\"中文\xff\x80\"]"},
      {" \x01{ \"a\" : [ true , false , null ] , \"b\" : { } } tail }",
       "{\"a\":[true,false,null],\"b\":{}}"},
      {"\"single\"", "\"single\""},
  };
  for (const auto& [in, out] : cases) {
    const CJsonObject json{std::string(in)};
    EXPECT_EQ(json.ToString(), out) << in;
    EXPECT_EQ(CJsonObject(json.ToString()).ToString(), out) << in << " parsed once more";
  }
  for (const char* broken :
       {"[1e400]", "[-1e400]", "[1 2]", "[-]", "[1e]", "[.5]", R"(["open)", R"(["open\)", R"(["\")",
        "", "{\"a\":1,}", "{1:2}", "[tru]", "}", "[1}"})
    EXPECT_EQ(CJsonObject(std::string(broken)).ToString(), "") << broken;
}

TEST(JsonObject, EscapesAtAnyPlaceOfALongText) {
  for (const auto& [byte, charset, print] : {std::tuple('"', Charset::kUtf8, "\\\""),
                                             {'\\', Charset::kUtf8, "\\\\"},
                                             {'\x1f', Charset::kGbk, "\\u001f"},
                                             {'\xe4', Charset::kUtf8, "\xe4"},
                                             {'\xff', Charset::kGbk, "\\ufffd"},
                                             {'!', Charset::kGbk, "!"}}) {
    for (std::size_t place = 0; place < 40; ++place) {
      const auto within = [place](const std::string& middle) {
        return std::string(40, '#').replace(place, 1, middle);
      };
      CJsonObject json(charset);
      json.Add("k", within({byte}));
      EXPECT_EQ(json.ToString(), R"({"k":")" + within(print) + "\"}");
      EXPECT_EQ(CJsonObject(json.ToString(), charset).ToString(), json.ToString());
    }
  }
}

TEST(JsonObject, ReadsFractionsAlikeInTheLocaleOfAnyReader) {
  const TemporaryFolder folder("locale");
  const std::string comma = folder.path() / "comma";
  ASSERT_EQ(run_program({"localedef", "-i", "de_DE", "-f", "UTF-8", comma}).status, 0);
  setenv("LOCPATH", folder.path().c_str(), 1);
  ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr);
  EXPECT_EQ(CJsonObject("[1.5]").ToString(), "[1.500000]");
  EXPECT_NE(std::setlocale(LC_NUMERIC, "C"), nullptr);
}

TEST(JsonObject, SaysWhereParsingFailed) {
  CJsonObject json;
  EXPECT_FALSE(json.Parse(R"({"a":1.50, b:2})"));
  EXPECT_EQ(json.GetErrMsg(), "prase json string error at b:2}");
  EXPECT_FALSE(json.Parse(R"({"a":123456789 "b":2})"));
  EXPECT_EQ(json.GetErrMsg(), "prase json string error at \"b\":2}");
}

TEST(JsonObject, ReadsTheBytesOfGbkCharactersAsSuch) {
  const TextCase cases[] = {
      // Second bytes that are those of a backslash and of a bracket; a code of four bytes.
      {"{\"n\":\"\xd5\\\",\"\x81{\":\"\x81\x30\x81\x30\"}",
       "{\"n\":\"\xd5\\\",\"\x81{\":\"\x81\x30\x81\x30\"}"},
      {R"({"e":"\u4e2d\\u4e2d\"\u0041\ud83d\ude00"})", R"({"e":"\u4e2d\\u4e2d\"A\ud83d\ude00"})"},
      {R"({"e":"a\ud800b\udc00"})", R"({"e":"a\ufffdb\ufffd"})"},
      {"{\"m\":\"ab\xff\",\"n\":\"\x80\x81\"}", R"({"m":"ab\ufffd","n":"\ufffd\ufffd"})"},
      {"{\"m\":\"\x81\t\"}", R"({"m":"\ufffd\t"})"},
  };
  for (const auto& [in, out] : cases) {
    CJsonObject json(in, Charset::kGbk);
    EXPECT_EQ(json.ToString(), out);
    EXPECT_TRUE(json.Add("fid", gbk("诚")));
    EXPECT_EQ(json.ToString(),
              std::string(out, strlen(out) - 1) + R"(,"fid":")" + gbk("诚") + "\"}");
    EXPECT_TRUE(json.Delete("fid"));
    EXPECT_EQ(json.ToString(), out);
  }
}

TEST(JsonObject, FindsTheFirstMemberInAnyLetterCase) {
  const CJsonObject json(R"({"Fid":"one","fid":"two","n":3,"N":4})");
  std::string text;
  EXPECT_TRUE(json.Get("FID", text));
  EXPECT_EQ(text, "one");
  EXPECT_FALSE(json.Get("n", text));
  EXPECT_EQ(text, "one");
  int number = 0;
  EXPECT_TRUE(json.Get("N", number));
  EXPECT_EQ(number, 3);
}

TEST(JsonObject, GetsNumbersAsInt) {
  for (const auto& [text, value] : {std::pair("8080.9", 8080),
                                    {"8080.9999999", 8080},
                                    {"-1.9", -1},
                                    {"4294967296", 0},
                                    {"4294967297", 1},
                                    {"-4294967297", -1},
                                    {"1e300", 2147483647},
                                    {"-1e300", -2147483647 - 1},
                                    {"340282366920938463463374607431768211457", 1}}) {
    const CJsonObject json(std::string("{\"port\":") + text + "}");
    int number = 7;
    EXPECT_TRUE(json.Get("port", number)) << text;
    EXPECT_EQ(number, value) << text;
  }
  int untouched = 7;
  EXPECT_FALSE(CJsonObject(std::string(R"({"port":"80"})")).Get("port", untouched));
  EXPECT_EQ(untouched, 7);
}

TEST(JsonObject, AddsAndDeletesMembers) {
  CJsonObject json(std::string(R"({"b":1.5,"Key":2,"key":3})"));
  EXPECT_FALSE(json.Add("KEY", "x"));
  EXPECT_EQ(json.GetErrMsg(), "key exists!");
  EXPECT_TRUE(json.Delete("KEY"));
  EXPECT_TRUE(json.Delete("absent"));
  EXPECT_TRUE(json.Add("z", "\"\x01"));
  EXPECT_EQ(json.ToString(), R"({"b":1.500000,"key":3,"z":"\"\u0001"})");

  CJsonObject array(std::string("[1]"));
  EXPECT_FALSE(array.Add("a", "b"));
  EXPECT_FALSE(array.Delete("a"));
  EXPECT_EQ(array.GetErrMsg(), "not a json object! json array?");

  CJsonObject empty;
  EXPECT_FALSE(empty.Delete("a"));
  EXPECT_EQ(empty.GetErrMsg(), "json data is null!");
  EXPECT_TRUE(empty.Add("a", "b"));
  EXPECT_EQ(empty.ToString(), R"({"a":"b"})");
}

}  // namespace
