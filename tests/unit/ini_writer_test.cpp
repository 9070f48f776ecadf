#include "Services/dispatcher/ini_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files.h"

namespace {

TEST(IniWriter, ReplacesWholeLinesAndNothingElse) {
  const std::string big(3000, 'b');
  const std::string long_line(300, 'l');
  const struct {
    const char* name;
    std::string before;
    std::string after;  // the value "new" written for [S] k
    const char* message;
  } cases[] = {
      {"shorter", "[S]\nk=a long old value\nz=1\n", "[S]\nk=new\nz=1\n", ""},
      {"longer", "[S]\nk=\nz=1\n", "[S]\nk=new\nz=1\n", ""},
      {"CR LF of other lines stays", "; c\r\n[S]\r\nk=1\r\n\r\nz=1\r\n",
       "; c\r\n[S]\r\nk=new\n\r\nz=1\r\n", ""},
      {"prefix keys and repeated keys", "[S]\nk2=1\nk=1\n k=1\nk=2\n",
       "[S]\nk=new\nk=new\n k=1\nk=new\n", ""},
      {"comments", ";[S]\n[S] ;x\n;k=1\nk=1 ;y\n", ";[S]\n[S] ;x\n;k=1\nk=new\n", ""},
      {"other sections", "k=0\n[R]\nk=1\n[S]\nk=2\n[T]\nk=3\n[S]\nk=4\n",
       "k=0\n[R]\nk=1\n[S]\nk=new\n[T]\nk=3\n[S]\nk=new\n", ""},
      {"value with brackets", "[S]\nk=[1]\nz=1\n", "[S]\nk=new\nz=1\n", ""},
      {"no line feed at the end", "[S]\nk=1", "[S]\nk=new\n", ""},
      {"other last line without line feed", "[S]\nk=1\nz=1", "[S]\nk=new\nz=1", ""},
      {"tail of a long line is no line", "[S]\n" + long_line + "k=1\nk=2\n",
       "[S]\n" + long_line + "k=1\nk=new\n", ""},
      {"large file", "[S]\nx=" + big + "\nk=1\ny=" + big + "\n",
       "[S]\nx=" + big + "\nk=new\ny=" + big + "\n", ""},
      {"zero bytes", std::string("[S]\na\0b\nk=1\n", 12), std::string("[S]\na\0b\nk=new\n", 14),
       ""},
      {"no section", "[T]\nk=1\n", "[T]\nk=1\n", "No section = [S]\n"},
      {"blank before the header", " [S]\nk=1\n", " [S]\nk=1\n", "No section = [S]\n"},
      {"no key", "[S]\nz=1\n[T]\nk=1\n", "[S]\nz=1\n[T]\nk=1\n", "No key = k\n"},
      {"empty", "", "", "No section = [S]\n"},
  };
  for (const auto& [name, before, after, message] : cases) {
    const TemporaryFile file(before);
    testing::internal::CaptureStdout();
    writeStringVlaue("S", "k", "new", file.name());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), message) << name;
    EXPECT_EQ(file.content(), after) << name;
  }
}

TEST(IniWriter, WritesIntegersAndRefusesWhatIsNotThere) {
  const TemporaryFile file("[S]\nk=1\n");
  writeIntValue("S", "k", -443, file.name());
  EXPECT_EQ(file.content(), "[S]\nk=-443\n");

  testing::internal::CaptureStdout();
  EXPECT_EQ(writeStringVlaue("S", nullptr, "v", file.name()), -1);
  writeIntValue("S", "k", 1, "/nonexistent/q.ini");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "writeStringVlaue: input parameter(s) is NULL!\n"
            "Services/dispatcher: Opent file /nonexistent/q.ini failed.\n");
}

}  // namespace
