// Messages in pieces, many at once, too long or left unfinished; hostile bytes; TLS.

#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

using namespace std::string_literals;

constexpr unsigned char kFinalText = 0x81;  // first byte of a whole text message's frame

class ChannelTest : public ServiceTest {
 protected:
  std::string frames(int requests) const {
    std::string bytes;
    for (int number = 0; number < requests; ++number) {
      bytes += masked_frame(kFinalText, echo_request(number));
    }
    return bytes;
  }

  /// Sends that many requests in one write, which TLS makes one record.
  void expect_pipelined_replies(WsClient client, int requests) const {
    client.send_raw(frames(requests));
    for (int number = 0; number < requests; ++number) {
      ASSERT_EQ(echo_reply(number), client.receive());
    }
    EXPECT_EQ(failure(utf8(messages::kUnrecognised)), client.ask("last"));
  }
};

TEST_F(ChannelTest, PiecesAreJoinedUpToTheNulOfEach) {
  start();
  const std::string whole = echo_request(1);
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"", whole, ""}, echo_reply(1)},
      {{"", "", ""}, failure(utf8(messages::kUnrecognised))},
      {{"{}\0ignored"s}, failure(utf8(messages::kUnrecognised))},
      {{"\0{}"s, whole}, echo_reply(1)},
      {{whole.substr(0, 3) + "\0{}"s, whole.substr(3)}, echo_reply(1)},
      {{whole + "\0"s, "ignored"}, echo_reply(1)},
  };
  WsClient client = connect();
  for (const auto& [pieces, reply] : rows) {
    client.send_fragments(pieces);
    EXPECT_EQ(reply, client.receive()) << testing::PrintToString(pieces);
  }
}

TEST_F(ChannelTest, PipelinedRequestsGetOneReplyEachInOrderAlsoInOneTlsRecord) {
  constexpr int kRequests = 500;
  ASSERT_LE(frames(kRequests).size(), 16384U);
  start();
  expect_pipelined_replies(connect(), kRequests);
  TearDown();
  folder.make_certificate();
  options.tls = true;
  start({"functions"}, {"-s"});
  expect_pipelined_replies(connect(), kRequests);
  // A browser offers HTTP/2 first; two of its WebSockets would share one such connection.
  options.alpn = {"h2", "http/1.1"};
  EXPECT_EQ("http/1.1", connect().alpn());
  expect_pipelined_replies(connect(), 20);
  connect().send_raw(frames(kRequests));
  EXPECT_EQ(0, daemon->stop()) << daemon->errors();
}

TEST_F(ChannelTest, MessageTooLongGetsOneRefusalAndTheConnectionGoesOn) {
  sections = "[ISOLATED]\nlib1=30\n";  // whose packets take the longest message as well
  start();
  const auto request = [](size_t size) {
    // The numbers print longer than they stand here, by as much as the name takes that is taken
    // out.
    const std::string begin = R"({"fid":"length","platform":"","n":[1e1,1e1,1e1,7e0,-0],"pad":")";
    return begin + std::string(size - begin.size() - 2, 'x') + "\"}";
  };
  std::string growing = R"({"fid":"length","n":[1)";  // readers get numbers with all their digits
  for (int count = 0; count < 400; ++count) growing += ",1e300";
  const std::string refusal = failure(utf8(messages::kMessageTooLong));
  expect_replies({{request(102399), R"({"length":102399,"fid":"length"})"},
                  {request(102400), refusal},
                  {request(143359), refusal},
                  {request(143360), refusal},
                  {request(500000), refusal},
                  {growing + "]}", refusal},
                  {echo_request(1), echo_reply(1)}});
}

}  // namespace
