#include "config/ini.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/memory_file.h"

namespace {

TEST(Ini, KeepsWhatItReadAndPutsASectionWhereTheFileIsOpenForWriting) {
  const MemoryFile file("[S]\nx=7\n");
  CIni ini;
  ASSERT_EQ(ini.OpenFile(file.path().c_str(), "r"), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(ini.OpenFile("/nonexistent/q.ini", "r"), 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "open inifile /nonexistent/q.ini error!\n");
  EXPECT_EQ(ini.GetInt("S", "x"), 7);
  char small[2] = "?";
  ini.GetKey("S", "absent", small, sizeof small);
  EXPECT_STREQ(small, "");
  ini.OpenFile(file.path().c_str(), "r+");
  ini.PutStr("T", "y", "8");
  ini.CloseFile();
  EXPECT_EQ(file.content(), "[S]\nx=7\n[T]\ny=8\n");
}

}  // namespace
