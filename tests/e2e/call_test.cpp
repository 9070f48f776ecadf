// The command-line client against the service.

#include "tests/support/child_process.h"
#include "tests/support/service_test.h"

namespace {

class CallTest : public ServiceTest {
 protected:
  struct Row {
    std::vector<std::string> arguments;
    int status;
    std::string output;  ///< all of standard output
    std::string advice;  ///< part of standard error
  };

  static void expect_outcomes(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      std::vector<std::string> arguments = row.arguments;
      arguments.insert(arguments.begin(), QUORVEL_STAGE "/bin/quorvel-call");
      const ProgramResult result = run_program(arguments, "{\"fid\":\"plain\"}\n");
      EXPECT_EQ(row.status, result.status) << testing::PrintToString(arguments) << result.errors;
      EXPECT_EQ(row.output, result.output);
      EXPECT_NE(std::string::npos, result.errors.find(row.advice)) << result.errors;
    }
  }
  static std::string url(const std::string& scheme, uint16_t to) {
    return "--url=" + scheme + "://localhost:" + std::to_string(to);
  }

  const std::string plain = R"({"result":"true","name":"张三","size":1.500000,"fid":"plain"})"
                            "\n";
};

TEST_F(CallTest, ExitStatusTellsTheResult) {
  start();
  const TcpSocket mute = TcpSocket::listen(4);
  expect_outcomes({
      {{url("ws", port), R"({"fid":"plain"})"}, 0, plain, ""},
      {{"-", url("ws", port)}, 0, plain, ""},
      {{url("ws", port), R"({"fid":"array"})"}, 1, "[1,2]\n", ""},
      {{url("ws", port), "{}"}, 1, failure("错误信息:无法识别的指令") + "\n", ""},
      {{url("ws", free_port()), "{}"}, 2, "", "localport"},
      {{url("ws", mute.local_port()), "--timeout=1", "{}"}, 2, "", "no reply within 1 seconds"},
      {{url("wss", port), "--timeout=1", "{}"}, 2, "", "use ws:// instead of wss://"},
      {{url("ws", port)}, 3, "", "--help"},
      {{"--timeout=0", "{}"}, 3, "", "--timeout 0"},
      {{"--url=http://localhost", "{}"}, 3, "", "ws:// or wss://"},
  });
}

TEST_F(CallTest, OriginGetsTheRightsOfItsSite) {
  sections = "[ACCESS]\norigin1=https://a.example\nfunctions1=plain\n";
  start();
  const std::string refused = failure("该网站无权使用此功能！", "echo") + "\n";
  expect_outcomes({
      {{url("ws", port), "--origin=https://a.example", "-"}, 0, plain, ""},
      {{url("ws", port), "--origin=https://a.example", R"({"fid":"echo"})"}, 1, refused, ""},
      {{url("ws", port), "--origin=https://b.example", "-"}, 2, "", "pages of https://b.example"},
      {{url("ws", port), "-"}, 0, plain, ""},
      {{"--url=ws://[::1]:" + std::to_string(port), "-"}, 0, plain, ""},
  });
}

TEST_F(CallTest, TlsNeedsATrustedCertificate) {
  const std::string certificate = folder.make_certificate().string();
  options.tls = true;
  start({"functions"}, {"-s"});
  expect_outcomes({{{url("wss", port), "--ca", certificate, "-"}, 0, plain, ""},
                   {{url("wss", port), "-"}, 2, "", "--ca"},
                   {{url("ws", port), "-"}, 2, "", "wss://"}});
}

}  // namespace
