// Want of descriptors, of disk space and of somebody who reads the output; SIGINT at any moment.

#include <chrono>
#include <csignal>
#include <thread>

#include "tests/support/service_test.h"

namespace {

using SystemFaultTest = ServiceTest;

class DescriptorFaultTest : public ServiceTest, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(PlainAndTls, DescriptorFaultTest, testing::Bool());

TEST_P(DescriptorFaultTest,
       WithoutFreeDescriptorsOpenConnectionsAreServedAndNewOnesOnceSomeAreFreed) {
  constexpr size_t kLimit = 64;
  options.tls = GetParam();
  folder.make_certificate();
  start_by_shell("ulimit -n " + std::to_string(kLimit));
  start({"functions"}, {options.tls ? "-s" : "-d1031"});
  options.limit = std::chrono::seconds(1);
  std::vector<WsClient> clients;
  const auto connect_all = [&] {
    while (clients.size() < kLimit) clients.push_back(connect());
  };
  EXPECT_THROW(connect_all(), std::runtime_error);
  ASSERT_GT(clients.size(), kLimit / 2);
  // More that want to be let in, which must not busy the service.
  constexpr size_t kWaiting = 100;
  std::vector<TcpSocket> waiting;
  waiting.reserve(kWaiting);
  while (waiting.size() < kWaiting) waiting.push_back(TcpSocket::connect(port));
  options.limit = std::chrono::seconds(60);
  for (WsClient& client : clients) {
    EXPECT_EQ(echo_reply(1), client.ask(echo_request(1)));
    EXPECT_EQ(failure("不支持该功能.", "nosuch"), client.ask(R"({"fid":"nosuch"})"));
    EXPECT_EQ(0U, client.ask(R"({"fid":"getconfig"})").find(R"({"result":"true")"))
        << "the service's own files need descriptors, too";
  }
  EXPECT_LT(daemon->errors().size(), 100000U) << "the log is flooded";
  clients.clear();
  waiting.clear();
  wait_until_idle();
  EXPECT_EQ(echo_reply(2), ask(echo_request(2)));
}

TEST_F(SystemFaultTest, FullDiskLeavesTheSettingsAsTheyWere) {
  constexpr size_t kRoom = 65536;  // bytes of a file; the limit counts them in units of 1024
  start_by_shell("trap '' XFSZ\nulimit -f " + std::to_string(kRoom / 1024));
  start();
  const std::string settings = "[SERVER]\nSERVER_IP=1\nSERVER_PORT=2\n";
  // A part of what the new address takes finds room.
  const std::string before = settings + std::string(kRoom - settings.size() - 2, ';');
  write_file(folder.server_ini(), before);
  const TcpSocket listener = TcpSocket::listen(8);
  const std::string listening = std::to_string(listener.local_port());
  const std::string request = R"({"fid":"config","ip":"127.0.0.1","port":)" + listening + "}";
  ask(request);
  EXPECT_TRUE(before == read_file(folder.server_ini()));
  EXPECT_EQ(R"({"result":"true","ip":"1","port":"2"})", ask(R"({"fid":"getconfig"})"));
  EXPECT_TRUE(said("File too large")) << daemon->output();
  write_file(folder.server_ini(), settings);
  EXPECT_EQ(R"({"result":"true"})", ask(request));
  EXPECT_EQ(R"({"result":"true","ip":"127.0.0.1","port":")" + listening + "\"}",
            ask(R"({"fid":"getconfig"})"));
}

TEST_F(SystemFaultTest, InterruptAtAnyMomentEndsTheService) {
  constexpr int kMoments = 60;
  folder.write_service_ini({"libquorveldemo.so"}, port);
  for (int moment = 0; moment < kMoments; ++moment) {
    daemon.emplace(folder);
    std::this_thread::sleep_for(std::chrono::microseconds(500) * moment);
    const bool serves = said("Server Initializing");
    const int status = daemon->stop();
    EXPECT_TRUE(status == 0 || (!serves && status == 128 + SIGINT))
        << status << " at moment " << moment << "\n"
        << daemon->errors();
  }
}

}  // namespace
