#include <gtest/gtest.h>

#include <string>

#include "server/service_settings.h"
#include "tests/support/memory_file.h"

namespace {

struct Row {
  std::string content;
  int port;
  const char* said;  ///< a part of what the log says; "" when it says nothing
};

#define GOOD "[SERVER]\nlocalport=47392\n"

const Row kRows[] = {
    {GOOD, 47392, ""},
    {"; a\n\n[REGISTER]\r\nlib1=a.so\r\nlib20=b.so\r\n[LOG]\ncharset=GBK\n" GOOD, 47392, ""},
    {"[SERVER]\n\tlocalport= 65535\t;\n", 65535, ""},
    {"[SERVER]\nlocalport =47392\n", 0,
     "line 2, \"localport =47392\": there is no such key: write"},
    {"[SERVER]\nlocalport =47392\n", 0, "names no port in line 2, \"localport =47392\": write"},
    {"[SERVER]\nLocalPort=1\n", 0, "write localport=... without blanks under [SERVER]"},
    {"[SERVER]\nlocalport=99999\n", 0, "\"localport=99999\""},
    {"[SERVER]\nlocalport=0\n", 0, "localport=0"},
    {"[SERVER]\nlocalport=-1\n", 0, "localport=-1"},
    {"[SERVER]\nlocalport=80x\n", 0, "localport=80x"},
    {GOOD "[ISOLATED]\nlib1=10\n", 47392, ""},
    {"[SERVER]\nlocalport=000047392\n", 47392, ""},
    {"[SERVER]\nlocalport=0000047392\n", 0, "localport=0000047392"},
    {"[SERVER]\nlocalport=\n", 0, "localport="},
    {"[SERVER]\n", 0, "has no line localport= in [SERVER]"},
    {GOOD "[REGISTER]\nlib21=a.so\n", 47392, "line 4, \"lib21=a.so\": there is no such key\n"},
    {";" + std::string(300, 'x') + "\nlib1=a.so\n" GOOD, 47392, "line 2, \"lib1=a.so\": it stands"},
    {"\xEF\xBB\xBF" GOOD, 0, "begins with a byte-order mark"},
    {"\xFF\xFE" GOOD, 0, "is in UTF-16"},
    {"\xFE\xFF" GOOD, 0, "is in UTF-16"},
    {GOOD "[REGISTER]\nlib01=a.so\n", 47392, "\"lib01=a.so\": there is no such key\n"},
    {"[Server] \nlocalport=1\n" GOOD, 47392, "\"[Server] \": there is no such section"},
    {GOOD "[LOG]\ncharset=latin1\n", 47392, "charset=latin1 is not known: write utf-8 or gbk"},
    {GOOD "[LOG]\ncharset\n", 47392, "\"charset\": it is neither"},
    {GOOD "localport=47392\n", 47392, "line 3, \"localport=47392\": the key occurs again"},
    {"[SERVER]\nlocalport=1\n[SERVER]\n", 0, "line 3, \"[SERVER]\": the section occurs again"},
};

TEST(ServiceIni, TakesAPortOrSaysWhatIsWrong) {
  for (const auto& [content, port, part] : kRows) {
    SCOPED_TRACE(content);
    const MemoryFile file(content);
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_service_settings(file.path()).port, port);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find(part), std::string::npos) << said;
    EXPECT_EQ(said.find(file.path()) == std::string::npos, *part == '\0') << said;
  }
}

}  // namespace
