#include "Services/dispatcher/ini_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files.h"

namespace {

TEST(IniWriter, WritesIntegersAndSaysWhatIsNotThere) {
  const TemporaryFile file("[S]\nk=1\n");
  writeIntValue("S", "k", -443, file.name());
  EXPECT_EQ(file.content(), "[S]\nk=-443\n");

  testing::internal::CaptureStdout();
  writeStringVlaue("T", "k", "v", file.name());
  writeStringVlaue("S", "z", "v", file.name());
  EXPECT_EQ(writeStringVlaue("S", nullptr, "v", file.name()), -1);
  writeIntValue("S", "k", 1, "/nonexistent/q.ini");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "No section = [T]\nNo key = z\n"
            "writeStringVlaue: input parameter(s) is NULL!\n"
            "Services/dispatcher: Opent file /nonexistent/q.ini failed.\n");
}

}  // namespace
