// Clients that keep what others need: places in the table of messages, the service's one thread,
// connections that nobody uses.

#include <csignal>
#include <thread>

#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

using LoadFaultTest = ServiceTest;

TEST_F(LoadFaultTest, UnfinishedMessagesEndWithoutProgressAndIdleConnectionsStay) {
  const std::string whole = echo_request(1);
  constexpr size_t kMessages = 100;
  start();
  const size_t descriptors = daemon->process().open_descriptors();
  WsClient idle = connect();
  WsClient slow = connect();
  slow.send_piece(whole.substr(0, 2), false);
  std::vector<WsClient> stuck;
  for (size_t count = 0; count < kMessages; ++count) {  // the last one is refused
    stuck.push_back(connect());
    stuck.back().send_piece(whole.substr(0, 9), false);
  }
  stuck.front().ping();
  const char* established_and_kept_alive = "01 [0-9A-F:]+ 02:";
  EXPECT_TRUE(eventually([&] {
    return sockets_in_kernel(port, established_and_kept_alive) == kMessages + 2;
  })) << "every connection has TCP keep-alive";
  size_t sent = 2;
  const auto only_two_are_left = [&] {
    slow.send_piece(whole.substr(sent, 1), false);
    if (sent < whole.size()) ++sent;
    std::this_thread::sleep_for(std::chrono::seconds(3));
    return daemon->process().open_descriptors() == descriptors + 2;
  };
  EXPECT_TRUE(eventually(only_two_are_left));
  EXPECT_TRUE(said("unfinished message made no progress for 30 s"));
  slow.send_piece(whole.substr(sent), true);
  EXPECT_EQ(echo_reply(1), slow.receive());
  EXPECT_EQ(echo_reply(2), idle.ask(echo_request(2)));
  idle.send_fragments({R"({"fid":)", R"("echo","n":3})"});
  EXPECT_EQ(echo_reply(3), idle.receive());
}

TEST_F(LoadFaultTest, FloodOfConfigChecksOneAddressBetweenOtherRequests) {
  constexpr size_t kClients = 200;
  start();
  std::vector<WsClient> clients;
  while (clients.size() < kClients) clients.push_back(connect());
  daemon->process().signal(SIGSTOP);  // so that it finds all requests at once
  for (WsClient& client : clients) client.send(R"({"fid":"config","ip":"127.0.0.1","port":1})");
  daemon->process().signal(SIGCONT);
  size_t busy = 0;
  size_t checked_ones = 0;
  for (WsClient& client : clients) {
    const std::string reply = client.receive();
    if (reply == failure(utf8(messages::kBusy))) ++busy;
    if (reply == failure("请检网络-连接127.0.0.1:1   失败！")) ++checked_ones;
  }
  EXPECT_EQ(kClients, busy + checked_ones);
  EXPECT_LE(checked_ones, 10U) << "they came in a few passes of the service loop";
  EXPECT_EQ(failure("请检网络-连接127.0.0.1:1   失败！"),
            ask(R"({"fid":"config","ip":"127.0.0.1","port":1})"));
}

TEST_F(LoadFaultTest, RequestsBehindTheLastThatIsAnsweredInOneTlsRecordDoNotBusyTheService) {
  folder.make_certificate();
  options.tls = true;
  start({"functions"}, {"-s"});
  TcpSocket browser = TcpSocket::connect(port);
  browser.start_tls();
  const std::string get = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";
  browser.send(get + get);
  EXPECT_EQ(0U, browser.receive_until_close().rfind("HTTP/1.1 200", 0));
  // The service has ended the connection, and waits for this side to end it as well.
  const auto before = daemon->process().processor_time();
  std::this_thread::sleep_for(std::chrono::seconds(2));
  EXPECT_LT(daemon->process().processor_time() - before, std::chrono::milliseconds(300));
}

TEST_F(LoadFaultTest, UpgradeToHttp2IsAnsweredAsAPlainRequest) {
  start();
  const TcpSocket browser = TcpSocket::connect(port);
  browser.send(
      "GET / HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade, HTTP2-Settings\r\n"
      "Upgrade: h2c\r\nHTTP2-Settings: AAMAAABkAAQAAP__\r\n\r\n");
  const std::string response = browser.receive_until_close();  // idle, it is not kept either
  EXPECT_EQ(0U, response.rfind("HTTP/1.1 200", 0)) << response;
}

}  // namespace
