// Want of descriptors, of disk space and of somebody who reads the output; SIGINT at any moment.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <list>
#include <thread>

#include "tests/support/checked.h"
#include "tests/support/service_test.h"
#include "util/handle/unique_fd.h"

namespace fs = std::filesystem;

namespace {

using SystemFaultTest = ServiceTest;

/// Limits the descriptors of the processes that this one starts, and its own, until it is
/// destroyed.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    checked(getrlimit(RLIMIT_NOFILE, &before), "getrlimit");
    rlimit lower = before;
    lower.rlim_cur = limit;
    checked(setrlimit(RLIMIT_NOFILE, &lower), "setrlimit");
  }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before); }

 private:
  rlimit before{};
};

class DescriptorFaultTest : public ServiceTest, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(PlainAndTls, DescriptorFaultTest, testing::Bool());

TEST_P(DescriptorFaultTest,
       WithoutFreeDescriptorsOpenConnectionsAreServedAndNewOnesOnceSomeAreFreed) {
  constexpr rlim_t kLimit = 64;
  options.tls = GetParam();
  folder.make_certificate();
  {
    const DescriptorLimit limit(kLimit);
    start({"functions"}, {options.tls ? "-s" : "-d1031"});
  }
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

/// A small file system that is unmounted at the end.
class SmallDisk {
 public:
  explicit SmallDisk(fs::path directory)
      : path(std::move(directory)),
        mounted(fs::create_directory(path) &&
                mount("none", path.c_str(), "tmpfs", 0, "size=16k") == 0) {}
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (mounted) umount2(path.c_str(), MNT_DETACH);
  }

  bool usable() const { return mounted; }

 private:
  const fs::path path;
  const bool mounted;
};

TEST_F(SystemFaultTest, FullDiskLeavesTheSettingsAsTheyWere) {
  // The folder of the INI files is the small disk; the larger files are links.
  const fs::path real = folder.path() / "real";
  const fs::path bin = folder.path() / "bin";
  fs::rename(bin, real);
  const SmallDisk disk(bin);
  if (!disk.usable()) GTEST_SKIP() << "mounting a file system takes more rights";
  fs::create_symlink(real / "quorvelserver", folder.program());
  fs::copy(TEST_READERS "/functions.so", real / "functions.so");
  fs::create_symlink(real / "functions.so", bin / "functions.so");
  start();
  // The new address needs more bytes than the last page has.
  const std::string settings = "[SERVER]\nSERVER_IP=1\nSERVER_PORT=2\n";
  const std::string before = settings + std::string(4096 - settings.size(), ';');
  const fs::path file = folder.server_ini();
  write_file(file, before);
  EXPECT_THROW(write_file(bin / "filler", std::string(16384, 'x')), std::runtime_error);
  const TcpSocket listener = TcpSocket::listen(8);
  const std::string request =
      R"({"fid":"config","ip":"127.0.0.1","port":)" + std::to_string(listener.local_port()) + "}";
  ask(request);
  EXPECT_TRUE(before == read_file(file));
  EXPECT_EQ(R"({"result":"true","ip":"1","port":"2"})", ask(R"({"fid":"getconfig"})"));
  EXPECT_TRUE(said("No space left on device")) << daemon->output();
  fs::remove(bin / "filler");
  EXPECT_EQ(R"({"result":"true"})", ask(request));
  EXPECT_EQ(R"({"result":"true","ip":"127.0.0.1","port":")" +
                std::to_string(listener.local_port()) + "\"}",
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
