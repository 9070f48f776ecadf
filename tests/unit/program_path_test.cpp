#include "util/os/program_path.h"

#include <gtest/gtest.h>

namespace {

TEST(ProgramPath, LeavesAbsoluteNamesAloneAndRefusesWhatDoesNotFit) {
  char path[8] = "????";
  EXPECT_TRUE(getfilepath(path, "/a/b.so", sizeof path));
  EXPECT_STREQ(path, "/a/b.so");
  EXPECT_FALSE(getfilepath(path, "/a/bb.so", sizeof path));
  EXPECT_STREQ(path, "");
}

}  // namespace
