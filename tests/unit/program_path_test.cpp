#include "util/os/program_path.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "Services/dispatcher/program_directory.h"

namespace {

TEST(ProgramPath, LeadsBesideTheProgram) {
  char path[kProgramPathSize];
  ASSERT_TRUE(getfilepath(path, "unit_tests"));
  EXPECT_TRUE(std::filesystem::equivalent(path, "/proc/self/exe")) << path;
  ASSERT_TRUE(getfilepath());
  EXPECT_EQ(std::string(curPath0) + "/unit_tests", path);
}

TEST(ProgramPath, LeavesAbsoluteNamesAloneAndRefusesWhatDoesNotFit) {
  char path[8] = "????";
  EXPECT_TRUE(getfilepath(path, "/a/b.so", sizeof path));
  EXPECT_STREQ(path, "/a/b.so");
  EXPECT_FALSE(getfilepath(path, "/a/bb.so", sizeof path));
  EXPECT_STREQ(path, "");
}

}  // namespace
