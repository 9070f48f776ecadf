// "quorvel.status": what the service tells of itself and its libraries.

#include <csignal>
#include <regex>

#include "tests/support/eventually.h"
#include "tests/support/service_test.h"
#include "util/json/json_object.h"
#include "util/text/messages.h"

namespace {

class StatusTest : public ServiceTest {
 protected:
  /// The reply from "ready" on.
  std::string status() const {
    const std::string reply = ask(R"({"fid":"quorvel.status"})");
    EXPECT_EQ(reply, neb::CJsonObject(reply).ToString()) << "it is compact JSON";
    EXPECT_EQ(std::string::npos, reply.find(folder.path())) << reply;
    static const std::regex head(R"(^\{"result":"true","version":"[\d.]+","uptime":"\d+",)");
    return std::regex_replace(reply, head, "");
  }
  bool soon_has(const std::string& part) const {
    const auto has = [&] { return status().find(part) != std::string::npos; };
    return eventually(has, options.limit);
  }
};

TEST_F(StatusTest, TellsOfEachListedLibraryHowItDoes) {
  write_file(folder.path() / "bin/text.so", "text");
  sections =
      "[ISOLATED]\nlib2=7\nlib3=3600\n[REGISTER]\nlib1=odd_answer.so\nlib2=reserved.so\n"
      "lib3=getversion_fails.so\nlib5=text.so\nlib6=odd_answer.so\nlib7=vendor\nlib8=/"
      "a.so\nlib20=" +
      std::string(196, 'x') + ".so\n";
  start({"odd_answer", "reserved", "getversion_fails"});
  const std::string local = R"("isolated":"false","restarts":"0","waiting":"0",)";
  const std::string apart = R"("restarts":"0","waiting":"0",)";
  const std::string none = R"("functions":[]},{"key":)";
  EXPECT_EQ(
      R"("ready":"false","access":{"listen":"all"},"libraries":[{"key":"lib1","file":"odd_answer.so","state":"ready",)" +
          local +
          R"("functions":["\u0007odd"]},{"key":)"
          R"("lib2","file":"reserved.so","state":"ready","isolated":"true","limit":"7",)" +
          apart +
          R"("functions":["quorvel.own"]},{"key":)"
          R"("lib3","file":"getversion_fails.so","state":"failed","isolated":"true","limit":"3600",)" +
          apart + R"("reason":"初始化getversion_fails.so失败 没有读卡器",)" + none +
          R"("lib5","file":"text.so","state":"failed",)" + local +
          R"("reason":"初始化text.so失败 加载text.so失败，请检查读卡环境！text.so: file too short",)" +
          none + R"("lib6","file":"odd_answer.so","state":"failed",)" + local +
          R"("reason":"odd_answer.so loaded!",)" + none +
          R"("lib7","file":"vendor","state":"failed",)" + local +
          R"("reason":"vendor不是动态库文件！",)" + none +
          R"("lib8","file":"a.so","state":"failed",)" + local +
          R"("reason":"a.so不是动态库文件！",)" + none + R"("lib20","file":")" +
          std::string(99, 'x') + R"(","state":"failed",)" + local + R"("reason":")" +
          std::string(196, 'x') + R"(.so路径过长！","functions":[]}]})",
      status());
  EXPECT_TRUE(said("reserved.so: functions that begin with \"quorvel.\" are the service's own"));
  for (const char* name : {"quorvel.own", "Quorvel.Own", "quorvel."})
    EXPECT_EQ(failure(utf8(messages::kNotSupported), name),
              ask(std::string(R"({"fid":")") + name + "\"}"));
}

TEST_F(StatusTest, FollowsALibraryThroughWorkCrashRefusalAndRestart) {
  const auto failed = [](GbkView reason, const char* function) {
    return failure(utf8(reason), function);
  };
  sections = "[ISOLATED]\nLib1=31\n";
  start({"functions"});
  EXPECT_EQ(0U, status().find(R"("ready":"true")"));
  WsClient working = connect();
  WsClient waiting = connect();
  working.send(R"({"fid":"late"})");
  waiting.send(echo_request(1));
  EXPECT_TRUE(
      soon_has(R"("state":"working","isolated":"true","limit":"31","restarts":"0","waiting":"1")"));
  EXPECT_EQ(R"({"result":"true","fid":"late"})", working.receive());
  EXPECT_EQ(echo_reply(1), waiting.receive());

  for (const bool again : {false, true}) {
    write_file(folder.path() / "crash_in_init", "");
    EXPECT_EQ(failed(messages::kLibraryCrashed, "crash"), working.ask(R"({"fid":"crash"})"));
    if (!again) daemon->wait_for_message("the next try is in 2 s");
    waiting.send(echo_request(1));
    const std::string seen = status();
    EXPECT_FALSE(std::regex_search(seen, std::regex("failed.*\"waiting\":\"1\""))) << seen;
    EXPECT_EQ(failed(messages::kLibraryUnavailable, "echo"), waiting.receive());
    EXPECT_TRUE(soon_has(R"("waiting":"0","reason":"加载functions.so失败)"));
    EXPECT_EQ(0U, status().find(R"("ready":"false")"));
    EXPECT_TRUE(soon_has("\"echo\"")) << "its functions are known";
    std::filesystem::remove(folder.path() / "crash_in_init");
    EXPECT_TRUE(soon_has(R"("state":"ready")")) << status();
    EXPECT_EQ(echo_reply(2), waiting.ask(echo_request(2)));
  }
  const std::string log = daemon->errors();
  EXPECT_NE(log.find("the next try is in 1 s"), log.rfind("the next try is in 1 s"))
      << "a reply begins the pauses anew";
}

TEST_F(StatusTest, LeavesOutWhatIsTooMuch) {
  std::vector<std::string> readers;
  for (int number = 10; number < 30; ++number) {
    readers.push_back(std::string(90, 'l') + std::to_string(number));
    std::filesystem::copy(TEST_READERS "/endless_answer.so",
                          folder.path() / "bin" / (readers.back() + ".so"));
  }
  start(readers);
  const std::string reply = status();
  EXPECT_LT(9000U, reply.size());
  EXPECT_GT(10240U, reply.size());
  for (const std::string& reader : readers)
    EXPECT_NE(std::string::npos, reply.find(reader + R"(.so","state":"ready")"));
  EXPECT_NE(std::string::npos, reply.find(std::string(511, 'f') + R"("]},{"key":"lib2")"));
  EXPECT_NE(std::string::npos, reply.find(R"("waiting":"0","truncated":"true"}]})"));
}

TEST_F(StatusTest, TellsWhoMayUseItAsFarAsThereIsRoom) {
  std::string site = "https://";
  for (int label = 0; label < 3; ++label) site += std::string(63, 's') + '.';
  sections = "[ACCESS]\nlisten=loopback\n";
  for (int number = 10; number < 60; ++number)
    sections += "origin" + std::to_string(number - 9) + '=' + site + std::to_string(number) + "x\n";
  start({"odd_answer"});
  const std::string reply = status();
  EXPECT_EQ(0U, reply.find(R"("ready":"true","access":{"listen":"loopback","sites":[")" + site +
                           "10x\",\"" + site + "11x\""));
  EXPECT_NE(std::string::npos, reply.find(R"("],"truncated":"true"},"libraries":[{"key":"lib1")"));
  EXPECT_GT(10240U, reply.size());
  EXPECT_LT(9500U, reply.size());
  EXPECT_TRUE(said(site + "12x, and 47 more sites, on this machine\n")) << daemon->errors();
}

}  // namespace
