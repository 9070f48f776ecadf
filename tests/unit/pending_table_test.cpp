#include "server/pending_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace {

class PendingTable : public testing::Test {
 protected:
  void TearDown() override {
    for (int fd = 1; fd <= 2 * kPendingEntries; ++fd) release_pending(fd);
  }
  static bool store(int fd, std::string_view chunk) {
    return store_chunk(find_pending(fd).entry, fd, chunk.data(), chunk.size());
  }
  std::string take(int fd, std::string_view chunk) {
    const PendingEntry found = find_pending(fd);
    fits = take_message(found.entry, found.length, chunk.data(), chunk.size(), out.data());
    return out.c_str();
  }
  static bool is_free(int entry) {
    const data_struct& e = data_rec[entry];
    return e.sockfd <= 0 &&
           std::all_of(std::begin(e.buffer), std::end(e.buffer), [](char c) { return c == 0; });
  }

  std::string out = std::string(kMessageSize, '\0');
  bool fits = true;
};

TEST_F(PendingTable, JoinsTheChunksOfEachConnectionUpToTheNulOfEach) {
  EXPECT_FALSE(has_pending(7));
  EXPECT_TRUE(store(7, ""));
  EXPECT_FALSE(has_pending(7)) << "its text is empty";
  EXPECT_EQ(data_rec[0].sockfd, 7);
  EXPECT_TRUE(store(7, std::string_view("ab\0cdef", 7)));
  EXPECT_TRUE(store(9, "1"));
  EXPECT_TRUE(store(7, "X"));
  EXPECT_TRUE(has_pending(7));
  EXPECT_STREQ(data_rec[0].buffer, "abX");
  EXPECT_EQ(take(7, std::string_view("Y\0Z", 3)), "abXY");
  EXPECT_EQ(data_rec[0].sockfd, -1);
  EXPECT_TRUE(is_free(0));
  EXPECT_EQ(take(9, ""), "1");
  EXPECT_TRUE(store(7, "new"));
  release_pending(7);
  EXPECT_TRUE(is_free(0));
}

TEST_F(PendingTable, HasRoomForAHundredConnectionsWithMessagesBelowItsSize) {
  for (int fd = 1; fd <= kPendingEntries; ++fd) EXPECT_TRUE(store(fd, std::to_string(fd)));
  EXPECT_EQ(find_pending(101).entry, kNoEntry);
  EXPECT_EQ(find_pending(42).length, 2);
  EXPECT_EQ(take(42, "!"), "42!");
  EXPECT_EQ(find_pending(101).entry, 41);
  const std::string half(kMessageSize / 2, 'h');
  EXPECT_TRUE(store(101, half));
  EXPECT_FALSE(store(101, half));
  EXPECT_TRUE(store(101, half.substr(1)));
  EXPECT_FALSE(store(101, "x"));
  EXPECT_EQ(take(101, "x"), "");
  EXPECT_FALSE(fits);
  EXPECT_TRUE(is_free(41));
}

}  // namespace
