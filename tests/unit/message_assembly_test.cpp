#include "server/message_assembly.h"

#include <gtest/gtest.h>

#include <string>

#include "server/pending_table.h"
#include "util/text/messages.h"

namespace {

class MessageAssemblyTest : public testing::Test {
 protected:
  void TearDown() override {
    for (int fd = 1; fd <= kPendingEntries + 1; ++fd) release_pending(fd);
  }
  MessageAssembly assembly{};
};

TEST_F(MessageAssemblyTest, JoinsPiecesAndTakesAWholeMessageAsItIs) {
  EXPECT_STREQ(complete_message(assembly, 7, std::string_view("one\0two", 7)).text, "one");
  collect_chunk(assembly, 7, "");
  EXPECT_TRUE(assembly.collecting);
  collect_chunk(assembly, 7, "a");
  EXPECT_STREQ(complete_message(assembly, 7, "b").text, "ab");
  EXPECT_FALSE(assembly.collecting);
  EXPECT_FALSE(has_pending(7));
}

TEST_F(MessageAssemblyTest, RefusesOnceAndForgetsTheRest) {
  const std::string half(kMessageSize / 2, 'x');
  collect_chunk(assembly, 7, half);
  collect_chunk(assembly, 7, half);
  EXPECT_FALSE(has_pending(7)) << "a refused message takes no room";
  collect_chunk(assembly, 7, "{}");
  const Message message = complete_message(assembly, 7, "");
  EXPECT_EQ(message.text, nullptr);
  EXPECT_EQ(message.refusal, messages::kMessageTooLong);
  EXPECT_EQ(complete_message(assembly, 7, half + half).refusal, messages::kMessageTooLong);
  EXPECT_STREQ(complete_message(assembly, 7, "next").text, "next");
}

TEST_F(MessageAssemblyTest, RefusesAsBusyWhileAllEntriesAreTakenAndForgetsWhoLeaves) {
  MessageAssembly others[kPendingEntries] = {};
  for (int i = 0; i < kPendingEntries; ++i) collect_chunk(others[i], i + 1, "x");
  collect_chunk(assembly, kPendingEntries + 1, "y");
  EXPECT_EQ(complete_message(assembly, kPendingEntries + 1, "z").refusal, messages::kBusy);
  abandon_message(others[3], 4);
  collect_chunk(assembly, kPendingEntries + 1, "y");
  EXPECT_STREQ(complete_message(assembly, kPendingEntries + 1, "z").text, "yz");
}

}  // namespace
