// "getconfig" and "config": replies, and the INI file's bytes.

#include "tests/support/service_test.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kStored = "[SERVER]\n ;[note]\nSERVER_IP=10.0.0.1\nSERVER_PORT=80\n";
constexpr const char* kDone = R"({"result":"true"})";

class SettingsTest : public ServiceTest {
 protected:
  void SetUp() override { start(); }

  static std::string config(const std::string& ip, const std::string& new_port) {
    return R"({"fid":"config","ip":")" + ip + R"(","port":)" + new_port + "}";
  }
  std::string file() const { return read_file(folder.server_ini()); }

  const TcpSocket listener = TcpSocket::listen(64);
  const std::string listening = std::to_string(listener.local_port());
  const std::string reachable = config("127.0.0.1", listening);
  const std::string ip_line = "SERVER_IP=127.0.0.1\n";
  const std::string port_line = "SERVER_PORT=" + listening + "\n";
};

TEST_F(SettingsTest, AddressIsStoredOnlyWhenItIsValidAndAnswers) {
  const TcpSocket silent = TcpSocket::listen(0);
  const TcpSocket filler = TcpSocket::connect(silent.local_port());
  const std::string no_answer = std::to_string(silent.local_port());
  const std::string above = std::to_string(65536 + listener.local_port());
  const std::string longest = "127.0.0.1 " + std::string(29, 'x');
  const std::string no_address = failure("取参数ip:地址失败");
  const std::string no_port = failure("取参数:端口失败");
  const auto unreachable = [](const std::string& address) {
    return failure("请检网络-连接" + address + "失败！");
  };
  const std::vector<Exchange> refused = {
      {R"({"fid":"config","port":)" + listening + "}", no_address},
      {R"({"fid":"config","ip":127,"port":)" + listening + "}", no_address},
      {config(longest + "x", listening), no_address},
      {config(R"(127.0.0.1\nSERVER_IP=6.6.6.6)", listening), no_address},
      {config(R"(127.0.0.1\r)", listening), no_address},
      {config("127.0.0.1 [X]", listening), no_address},  // would read as a section's header
      {config("127.0.0.1", "\"" + listening + "\""), no_port},
      {config("127.0.0.1", "0"), no_port},
      {R"({"fid":"config","ip":"127.0.0.1"})", no_port},
      {config("127.0.0.1", "1"), unreachable("127.0.0.1:1   ")},
      {config("127.0.0.1", no_answer), unreachable("127.0.0.1:" + no_answer)},
      {config("localhost", listening), unreachable("localhost:" + listening)},
  };
  const std::vector<std::pair<std::string, std::string>> stored = {
      {reachable, ip_line + port_line},
      {config("127.0.0.1", listening + ".9"), ip_line + port_line},
      {config("127.0.0.1", above), ip_line + "SERVER_PORT=" + above + "\n"},
      {config(longest, listening), "SERVER_IP=" + longest + "\n" + port_line},
  };
  write_file(folder.server_ini(), kStored);
  for (const auto& [request, reply] : refused) {
    EXPECT_EQ(reply, ask(request));
    ASSERT_EQ(kStored, file()) << request;
  }
  for (const auto& [request, lines] : stored) {
    write_file(folder.server_ini(), kStored);
    EXPECT_EQ(kDone, ask(request)) << request;
    EXPECT_EQ("[SERVER]\n ;[note]\n" + lines, file()) << request;
  }
}

TEST_F(SettingsTest, LineOrSectionThatIsMissingIsNotAddedButNamed) {
  write_file(folder.server_ini(), "[SERVER]\nSERVER_PORT=1\n");
  EXPECT_EQ(kDone, ask(reachable));
  EXPECT_EQ("[SERVER]\n" + port_line, file());
  write_file(folder.server_ini(), "[OTHER]\nSERVER_IP=1\n");
  EXPECT_EQ(kDone, ask(reachable));
  EXPECT_EQ("[OTHER]\nSERVER_IP=1\n", file());
  EXPECT_TRUE(said("\nNo key = SERVER_IP\nNo section = [SERVER]\n")) << daemon->output();
}

TEST_F(SettingsTest, FileThatIsMissingStaysSo) {
  const std::string path = folder.server_ini().string();
  const std::string message = "Services/dispatcher: Opent file " + path + " failed.\n";
  fs::remove(path);
  EXPECT_EQ(failure("打开配置文件" + path + "失败."), ask(R"({"fid":"getconfig"})"));
  EXPECT_EQ(kDone, ask(reachable));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(said(message + message));

  // Of a reason, the first 199 bytes.
  const ServiceFolder deep(QUORVEL_STAGE, std::string(170, 'd'));
  fs::remove(deep.server_ini());
  const uint16_t other_port = free_port();
  deep.write_service_ini({}, other_port);
  DaemonProcess other(deep);
  other.wait_until_listening(other_port);
  EXPECT_EQ(failure("打开配置文件" + deep.server_ini().string().substr(0, 187)),
            WsClient(other_port).ask(R"({"fid":"getconfig"})"));
}

TEST_F(SettingsTest, StoredAddressIsReadAnewAndCutAtAWholeCharacterWhichTheStartNames) {
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {kStored, R"("ip":"10.0.0.1","port":"80"})", ""},
      {"[SERVER]\r\nSERVER_PORT=1234567\r\n", R"("ip":"","port":"123456"})",
       "SERVER_PORT is longer than 6 characters and is cut"},
      {"[SERVER]\nSERVER_IP=1\nSERVER_PORT=123456\n", R"("ip":"1","port":"123456"})",
       "SERVER_PORT=123456 is no port from 1 to 65535"},
      {"[SERVER]\nSERVER_IP=卡卡卡卡卡卡卡卡卡卡卡卡卡卡卡\n",
       R"("ip":"卡卡卡卡卡卡卡卡卡卡卡卡卡卡","port":""})",
       "SERVER_IP is longer than 29 characters and is cut"},
      {"[server]\nSERVER_IP=1\n", R"("ip":"","port":""})", "has no line SERVER_IP= under [SERVER]"},
      {"", R"("ip":"","port":""})", "has no line SERVER_PORT= under [SERVER]"},
  };
  for (const auto& [content, members, fault] : rows) {
    write_file(folder.server_ini(), gbk(content));
    EXPECT_EQ(R"({"result":"true",)" + members, ask(R"({"FID":"getconfig"})"));
    TearDown();
    start();
    EXPECT_TRUE(said(fault)) << fault << daemon->errors();
  }
}

}  // namespace
