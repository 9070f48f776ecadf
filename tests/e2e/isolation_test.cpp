// Reader libraries in processes of their own: what crashes, hangs or takes its time costs one reply
// and delays nobody.

#include <csignal>

#include "tests/support/eventually.h"
#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

namespace fs = std::filesystem;

std::string request(const std::string& function) { return R"({"fid":")" + function + "\"}"; }

class IsolationTest : public ServiceTest {
 protected:
  void start_isolated(const std::vector<std::string>& readers, const std::string& seconds = "30",
                      const std::string& further = "") {
    sections = further + "[ISOLATED]\n";
    for (size_t number = 1; number <= readers.size(); ++number)
      sections += "lib" + std::to_string(number) + "=" + seconds + "\n";
    start(readers);
  }

  void TearDown() override {
    ServiceTest::TearDown();
    EXPECT_TRUE(eventually([this] { return processes().empty(); }, options.limit))
        << "a process outlives the service";
  }

  /// The service's processes: those that work in its folder.
  std::vector<pid_t> processes(const std::string& name = "") const {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::error_code error;
      const fs::path directory = fs::read_symlink(entry.path() / "cwd", error);
      if (error || directory != folder.path()) continue;
      const fs::path program = fs::read_symlink(entry.path() / "exe", error);
      if (!error && program.filename().string().find(name) == 0)
        found.push_back(std::stoi(entry.path().filename()));
    }
    return found;
  }

  pid_t helper() const { return processes("quorvel-host").at(0); }

  static std::string failed(GbkView reason, const std::string& function) {
    return failure(utf8(reason), function);
  }
};

TEST_F(IsolationTest, WhatEndsTheLibraryCostsOneReplyAndTheNextRequestIsServed) {
  start_isolated({"functions"});
  const std::string crashed[] = {"crash", "leave", "unplug", "recurse", "forge"};
  WsClient client = connect();
  for (const std::string& function : crashed) {
    WsClient next = connect();
    client.send(request(function));
    next.send(echo_request(1));  // may wait behind it, and loses nothing then
    EXPECT_EQ(failed(messages::kLibraryCrashed, function), client.receive());
    EXPECT_EQ(echo_reply(1), next.receive()) << function;
    EXPECT_EQ(echo_reply(2), client.ask(echo_request(2))) << function;
  }
  EXPECT_TRUE(said("functions.so: \"crash\" crashed with SIGABRT")) << daemon->errors();
  EXPECT_TRUE(said("functions.so: \"leave\" ended the process with exit status 0"));
  EXPECT_TRUE(said("sent what is no answer"));
  kill(helper(), SIGINT);  // which is for the service
  EXPECT_EQ(echo_reply(4), client.ask(echo_request(4)));
  EXPECT_FALSE(said("SIGINT"));
  kill(helper(), SIGKILL);
  daemon->wait_for_message("between two calls");  // before, a request would be lost with it
  EXPECT_EQ(echo_reply(3), client.ask(echo_request(3)));
  EXPECT_EQ(R"({"result":"true","fid":"breed"})", client.ask(request("breed")));
  EXPECT_EQ(0, daemon->stop());
  EXPECT_TRUE(said("uninit of functions")) << "an idle library may give back what it holds";
}

TEST_F(IsolationTest, SlowLibraryDelaysNobodyElseAndServesInOrder) {
  sections = "[ISOLATED]\nlib1=30\n";
  start({"functions", "libquorveldemo"});  // the demo library stays in the service
  WsClient slow = connect();
  WsClient leaving = connect();
  WsClient behind = connect();
  WsClient other = connect();
  const size_t connected = daemon->process().open_descriptors();
  kill(helper(), SIGSTOP);
  slow.send(echo_request(1));
  leaving.send(request("leave"));
  behind.send(echo_request(2));
  EXPECT_NE(std::string::npos, other.ask(request("getconfig")).find("\"true\""));
  EXPECT_NE(std::string::npos, other.ask(request("cardpresent")).find("\"true\""));
  EXPECT_NE(std::string::npos, http("GET / HTTP/1.0\r\n\r\n").find("200 OK"));
  leaving.vanish();
  EXPECT_TRUE(eventually([&] { return daemon->process().open_descriptors() == connected - 1; }));
  kill(helper(), SIGCONT);
  EXPECT_EQ(echo_reply(1), slow.receive());
  EXPECT_EQ(echo_reply(2), behind.receive());
  EXPECT_EQ(echo_reply(3), connect().ask(echo_request(3)));
  EXPECT_FALSE(said("\"leave\"")) << "nobody awaits what it would answer";
  // SIGINT ends the service at once, whatever the library does.
  slow.send(request("hang"));
  EXPECT_EQ(0, daemon->stop()) << daemon->errors();
}

TEST_F(IsolationTest, HangIsEndedAtItsLimitAlsoInLoading) {
  write_file(folder.path() / "bin/text.so", "text");
  const std::string name = gbk("读卡");
  fs::copy(TEST_READERS "/functions.so", folder.path() / "bin" / (name + ".so"));
  start_isolated({name, "init_hangs", "constructor_throws", "init_fails", "text"}, "1",
                 "[LOG]\ncharset=UTF-8\n");
  WsClient client = connect();
  WsClient next = connect();
  client.send(request("hang"));
  next.send(echo_request(1));
  EXPECT_EQ(failed(messages::kLibraryTimedOut, "hang"), client.receive());
  EXPECT_EQ(echo_reply(1), next.receive());
  client.ask(request("overrun"));  // of which the helper itself tells
  for (const char* text : {"读卡.so: the reply to \"overrun\"",
                           "init_hangs.so失败，请检查读卡环境！no answer within 1 s",
                           "constructor_throws.so失败，请检查读卡环境！crashed with SIGABRT",
                           "init_fails.so失败 初始化失败.", "text.so: file too short"})
    EXPECT_NE(std::string::npos, daemon->errors().find(text)) << text << daemon->errors();
  EXPECT_FALSE(said("init_hangs.so: starting it anew")) << "the first start that fails is the last";
}

TEST_F(IsolationTest, NoHelperOutlivesAServiceThatIsKilled) {
  start_isolated({"functions"});
  WsClient client = connect();
  client.send(request("hang"));
  EXPECT_EQ(1U, processes("quorvel-host").size());
  daemon->process().signal(SIGKILL);
  EXPECT_EQ(128 + SIGKILL, daemon->process().wait());
}

}  // namespace
