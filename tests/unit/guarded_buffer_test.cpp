#include "libs/guarded_buffer.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(GuardedBuffer, NoticesAnythingWrittenBehindItsEnd) {
  GuardedBuffer buffer;
  char* bytes = buffer.prepare(100);
  EXPECT_EQ(bytes[99], '\0');
  std::memset(bytes, 'x', 100);
  EXPECT_TRUE(buffer.intact());
  bytes[100] = '\0';
  EXPECT_FALSE(buffer.intact()) << "a terminating NUL too many";
  std::memset(bytes, 'x', 60000);
  EXPECT_FALSE(buffer.intact());
  bytes = buffer.prepare(100);
  EXPECT_TRUE(buffer.intact());
  EXPECT_EQ(bytes[99], '\0');
}

}  // namespace
