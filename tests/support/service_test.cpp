#include "tests/support/service_test.h"

#include <sys/utsname.h>

namespace fs = std::filesystem;

ServiceTest::ServiceTest() {
  utsname system{};
  uname(&system);
  platform = std::string("\"platform\":\"") + system.machine + "\"";
}

void ServiceTest::TearDown() {
  if (!daemon || daemon->process().exit_status()) return;
  EXPECT_EQ(failure("未传入服务名！"), ask(R"({"a":1})"));
  wait_until_idle();
  EXPECT_EQ(0, daemon->stop()) << daemon->errors();
}

void ServiceTest::wait_until_idle() {
  const auto idle = [this] { return daemon->process().open_descriptors() == idle_descriptors; };
  ASSERT_TRUE(eventually(idle, options.limit)) << "a descriptor is left open";
}

void ServiceTest::start(const std::vector<std::string>& readers,
                        const std::vector<std::string>& arguments, const std::string& name) {
  std::vector<std::string> files;
  for (const std::string& reader : readers) {
    files.push_back(reader + ".so");
    const fs::path built = fs::path(TEST_READERS) / files.back();
    if (!fs::exists(built)) continue;
    fs::copy(built, folder.path() / "bin" / files.back(), fs::copy_options::skip_existing);
  }
  folder.write_service_ini(files, port, sections);
  daemon.emplace(folder, arguments, name);
  daemon->wait_until_listening(port);
  idle_descriptors = daemon->process().open_descriptors();
}

void ServiceTest::start_by_shell(const std::string& prepare) const {
  const fs::path real = folder.path() / "bin/service";
  if (!fs::exists(real)) fs::rename(folder.program(), real);
  write_file(folder.program(), "#!/bin/bash\n" + prepare + "\nexec bin/service \"$@\"\n");
  fs::permissions(folder.program(), fs::perms::owner_all);
}

std::string ServiceTest::http(std::string_view request) const {
  const TcpSocket browser = TcpSocket::connect(port);
  browser.send(request);
  return browser.receive_until_close();
}

void ServiceTest::expect_replies(const std::vector<Exchange>& exchanges) const {
  WsClient client = connect();
  for (const auto& [request, reply] : exchanges) {
    const size_t half = request.size() / 2;
    client.send(request);
    EXPECT_EQ(reply, client.receive()) << request.substr(0, 200);
    client.send_binary(request);
    EXPECT_EQ(reply, client.receive()) << "binary: " << request.substr(0, 200);
    client.send_fragments({request.substr(0, half), "", request.substr(half)});
    EXPECT_EQ(reply, client.receive()) << "in pieces: " << request.substr(0, 200);
  }
}

bool ServiceTest::said(const std::string& text) const {
  return (daemon->output() + "\n" + daemon->errors()).find(gbk(text)) != std::string::npos;
}

std::string ServiceTest::echoed(const std::string& command) {
  return R"({"result":"true","fid":"echo","reader":"functions","command":)" + command + "}";
}

std::string ServiceTest::echo_request(int number) {
  return R"({"fid":"echo","n":)" + std::to_string(number) + "}";
}

std::string ServiceTest::echo_reply(int number) const {
  return echoed("{\"n\":" + std::to_string(number) + "," + platform + "}");
}
