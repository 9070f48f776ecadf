#include "Services/dispatcher/ini_writer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <string>

#include "tests/support/files.h"

namespace {

struct WriteCase {
  const char* name;
  std::string before;
  std::string after;  // the value "new" written for [S] k
  const char* message;
};

void PrintTo(const WriteCase& c, std::ostream* out) { *out << c.name; }

class IniWriter : public testing::TestWithParam<WriteCase> {};

TEST_P(IniWriter, ReplacesWholeLinesAndNothingElse) {
  const WriteCase& c = GetParam();
  const TemporaryFile file(c.before);
  testing::internal::CaptureStdout();
  writeStringVlaue("S", "k", "new", file.name());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), c.message);
  EXPECT_EQ(file.content(), c.after);
}

const std::string kLong(300, 'l');
const std::string kBig(3000, 'b');

const WriteCase kCases[] = {
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
    {"tail of a long line is no line", "[S]\n" + kLong + "k=1\nk=2\n",
     "[S]\n" + kLong + "k=1\nk=new\n", ""},
    {"large file", "[S]\nx=" + kBig + "\nk=1\ny=" + kBig + "\n",
     "[S]\nx=" + kBig + "\nk=new\ny=" + kBig + "\n", ""},
    {"zero bytes", std::string("[S]\na\0b\nk=1\n", 12), std::string("[S]\na\0b\nk=new\n", 14), ""},
    {"no section", "[T]\nk=1\n", "[T]\nk=1\n", "No section = [S]\n"},
    {"blank before the header", " [S]\nk=1\n", " [S]\nk=1\n", "No section = [S]\n"},
    {"no key", "[S]\nz=1\n[T]\nk=1\n", "[S]\nz=1\n[T]\nk=1\n", "No key = k\n"},
    {"empty", "", "", "No section = [S]\n"},
};
INSTANTIATE_TEST_SUITE_P(Table, IniWriter, testing::ValuesIn(kCases));

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

TEST(IniWriter, KeepsTheOldContentWhenTheFileCannotGrow) {
  const std::string before = "[S]\nk=1\nlast=" + kBig + "\n";
  const TemporaryFile file(before);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  const rlimit tight{before.size() + 2, old.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  testing::internal::CaptureStdout();
  setrlimit(RLIMIT_FSIZE, &tight);
  writeStringVlaue("S", "k", "a longer value", file.name());
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, handler);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("writing"), std::string::npos);
  EXPECT_EQ(file.content(), before);
}

}  // namespace
