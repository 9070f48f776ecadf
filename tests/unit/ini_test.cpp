#include "config/ini.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files.h"

namespace {

TEST(Ini, GivesTheValueAsItStands) {
  constexpr char kTwice[] = "[A]\nx=1\n[B]\ny=2\n[A]\nz=3\n";
  const struct {
    const char* content;
    const char* section;
    const char* key;
    const char* value;
  } cases[] = {
      {"", "", "x", ""},
      {"x=0\n[S]\nx=1\n", "", "x", "0"},
      {"[S]\r\nx=1\r\n", "S", "x", "1"},
      {"[S]\nx=1", "S", "x", "1"},
      {"[S]\n \t x=a=b;c \n", "S", "x", "a=b;c "},
      {"[S]\nx = 1\n", "S", "x", ""},
      {"[S]\nx = 1\n", "S", "x ", " 1"},
      {"[S]\n;x=1\n#x=2\n", "S", "x", ""},
      {"[S]\n;x=1\n#x=2\n", "S", "#x", "2"},
      {"[s]\nx=1\n", "S", "x", ""},
      {"[S]\nx=1\nx=2\n", "S", "x", "2"},
      {"[S] ;old\nx=1\n", "S ;old", "x", "1"},
      {"[S]\na=[1]\nx=1\n", "S", "x", ""},
      {"[S]\na=[1]\nx=1\n", "a=1", "x", "1"},
      {kTwice, "A", "x", ""},
      {kTwice, "A", "z", "3"},
      {kTwice, "B", "y", "2"},
      {"[S]\nx=中文\n", "S", "x", "中文"},
  };
  for (const auto& [content, section, key, value] : cases) {
    const TemporaryFile file(content);
    CIni ini;
    ASSERT_EQ(ini.OpenFile(file.name(), "r"), 0);
    EXPECT_STREQ(ini.GetStr(section, key), value) << content;
    ini.CloseFile();
    EXPECT_STREQ(ini.GetStr(section, key), value) << content << " after closing";
  }
}

TEST(Ini, ReadsALongLineAsPieces) {
  const TemporaryFile file("[S]\nx=" + std::string(253, 'v') + "y=2\nz=3\n");
  CIni ini;
  ini.OpenFile(file.name(), "r");
  EXPECT_EQ(std::string(ini.GetStr("S", "x")), std::string(253, 'v'));
  EXPECT_EQ(ini.GetInt("S", "y"), 2);
  EXPECT_EQ(ini.GetInt("S", "z"), 3);
}

TEST(Ini, KeepsWhatItReadWhenAnotherFileCannotBeOpened) {
  const TemporaryFile file("[S]\nx=7\n");
  CIni ini;
  ASSERT_EQ(ini.OpenFile(file.name(), "r"), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(ini.OpenFile("/nonexistent/q.ini", "r"), 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "open inifile /nonexistent/q.ini error!\n");
  EXPECT_EQ(ini.GetInt("S", "x"), 7);
  char small[2] = "?";
  ini.GetKey("S", "absent", small, sizeof small);
  EXPECT_STREQ(small, "");
}

TEST(Ini, PutsASectionWhereTheFileIsOpenForWriting) {
  const TemporaryFile file("[S]\nx=7\n");
  {
    CIni ini;
    ini.OpenFile(file.name(), "r+");
    ini.PutStr("T", "y", "8");
  }
  EXPECT_EQ(file.content(), "[S]\nx=7\n[T]\ny=8\n");
}

}  // namespace
