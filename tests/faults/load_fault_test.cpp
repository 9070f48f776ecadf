// Clients that keep what others need: places in the table of messages, the service's one thread,
// connections that nobody uses.

#include <csignal>
#include <thread>

#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

using LoadFaultTest = ServiceTest;

TEST_F(LoadFaultTest, UnfinishedMessagesFillTheTableEndWithoutProgressAndIdleConnectionsStay) {
  constexpr int kMessages = 100;
  start();
  const size_t descriptors = daemon->process().open_descriptors();
  std::vector<WsClient> clients;
  const auto client = [&](int number) -> WsClient& { return clients[static_cast<size_t>(number)]; };
  const auto begin_all = [&] {
    for (int number = 0; number < kMessages; ++number) {
      client(number).send_piece(echo_request(number).substr(0, 9), false);
      client(number).ping();  // its pong comes after the piece has been taken
    }
  };
  while (clients.size() < kMessages) clients.push_back(connect());
  begin_all();
  WsClient idle = connect();
  idle.send_fragments({R"({"fid":)", R"("echo",)", R"("n":1})"});
  EXPECT_EQ(failure(utf8(messages::kBusy)), idle.receive());
  EXPECT_EQ(echo_reply(1), idle.ask(echo_request(1)));
  for (int number = 0; number < kMessages; ++number) {
    client(number).send_piece(echo_request(number).substr(9), true);
    EXPECT_EQ(echo_reply(number), client(number).receive());
  }
  begin_all();
  const char* established_and_kept_alive = "01 [0-9A-F:]+ 02:";
  EXPECT_TRUE(eventually([&] {
    return sockets_in_kernel(port, established_and_kept_alive) == kMessages + 1;
  })) << "every connection has TCP keep-alive";
  WsClient& slow = clients.front();
  const std::string whole = echo_request(0);
  size_t sent = 9;
  const auto only_two_are_left = [&] {
    slow.send_piece(whole.substr(sent, 1), false);
    if (sent < whole.size()) ++sent;
    std::this_thread::sleep_for(std::chrono::seconds(3));
    return daemon->process().open_descriptors() == descriptors + 2;
  };
  EXPECT_TRUE(eventually(only_two_are_left));
  EXPECT_TRUE(said("unfinished message made no progress for 30 s"));
  slow.send_piece(whole.substr(sent), true);
  EXPECT_EQ(echo_reply(0), slow.receive());
  idle.send_fragments({R"({"fid":)", R"("echo","n":3})"});
  EXPECT_EQ(echo_reply(3), idle.receive());
}

TEST_F(LoadFaultTest, FloodOfConfigChecksOneAddressBetweenOtherRequests) {
  constexpr size_t kClients = 200;
  start();
  std::vector<WsClient> clients;
  while (clients.size() < kClients) clients.push_back(connect());
  daemon->process().stop();  // so that it finds all requests at once
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

}  // namespace
