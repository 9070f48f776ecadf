// Clients that break off or talk nonsense, and a reader that takes its time: the others are served
// meanwhile, no reply is lost, nothing stays behind.

#include "tests/support/service_test.h"

namespace {

using namespace std::string_literals;

constexpr unsigned char kWholeText = 0x81;

using ClientFaultTest = ServiceTest;

TEST_F(ClientFaultTest, ConnectionsThatBreakOffLeaveNoMemoryAndNoDescriptor) {
#ifdef __SANITIZE_ADDRESS__
  constexpr size_t kSpread = SIZE_MAX / 2;  // the sanitizer keeps freed memory for a while
#else
  constexpr size_t kSpread = 1048576;  // bytes that the allocator may come to use more or less
#endif
  constexpr int kRounds = 8;
  constexpr int kRoundsToReachItsSize = 5;  // libwebsockets 5 still grows in its fourth
  constexpr int kConnections = 100;
  const struct {
    std::string name;
    bool upgraded;
    std::string bytes;
  } faults[] = {
      {"garbage", false, std::string(5000, '\x16')},
      {"an upgrade to HTTP/2", false,
       "GET / HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade, HTTP2-Settings\r\n"
       "Upgrade: h2c\r\nHTTP2-Settings: AAMAAABkAAQAAP__\r\n\r\n"},
      {"HTTP/2 at once", false, "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"},
      {"half a handshake", false, "GET / HTTP/1.1\r\nUpgrade: websocket\r\n"},
      {"half a message", true, masked_frame(0x01, "{" + std::string(1000, 'x'))},
      {"half a frame", true, masked_frame(kWholeText, std::string(9000, 'x')).substr(0, 4500)},
      {"half a frame's head", true, "\x81"},
      {"an unmasked frame", true, "\x81\x02{}"},
      {"a reserved bit", true, masked_frame(0xC1, "{}")},
      {"a reserved kind", true, masked_frame(0x83, "{}")},
      {"a continuation of nothing", true, masked_frame(0x80, "{}")},
      {"a frame that claims to be huge", true, "\x81\xFF\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s},
      {"a request whose reply nobody awaits", true, masked_frame(kWholeText, echo_request(1))},
  };
  start();
  size_t size_before = 0;
  for (int round = 0; round < kRounds; ++round) {
    if (round == kRoundsToReachItsSize) size_before = daemon->process().resident_bytes();
    for (const auto& fault : faults) {
      std::vector<TcpSocket> sockets;
      for (int count = 0; count < kConnections; ++count) {
        sockets.push_back(fault.upgraded ? connect_ws(port) : TcpSocket::connect(port));
        sockets.back().send(fault.bytes);
      }
      EXPECT_EQ(echo_reply(round), ask(echo_request(round))) << fault.name;
    }
    wait_until_idle();
  }
  EXPECT_LT(daemon->process().resident_bytes(), size_before + kSpread);
}

TEST_F(ClientFaultTest, SlowReaderDelaysOthersButLosesNothing) {
  write_file(folder.path() / "bin/demo_cards.ini",
             "[READER]\ncharset=utf-8\n[slow]\nname=x\ndelay_ms=400\n");
  start({"functions", "libquorveldemo"});
  const std::string slow = R"({"fid":"readphotoref","data":{"person":"slow"}})";
  const std::string reply = R"({"result":"true","fid":"readphotoref","data":{"photo":""}})";
  WsClient asker = connect();
  WsClient vanishing = connect();
  WsClient other = connect();
  vanishing.send(slow);
  asker.send(slow);
  other.send(echo_request(1));
  vanishing.vanish();  // while the reader works for it
  EXPECT_EQ(echo_reply(1), other.receive());
  EXPECT_EQ(reply, asker.receive());
  // SIGINT takes effect when the reader is done.
  asker.send(slow);
  other.send(slow);
  EXPECT_EQ(0, daemon->stop()) << daemon->errors();
}

}  // namespace
