// Routing, command texts and replies; readers that break their contract.

#include "tests/support/service_test.h"
#include "util/text/messages.h"

namespace {

/// With the parameter, the first library is isolated, which changes no reply.
class ReaderTest : public ServiceTest, public testing::WithParamInterface<bool> {
 protected:
  ReaderTest() {
    if (GetParam()) sections = "[ISOLATED]\nlib1=30\n";
  }
};
INSTANTIATE_TEST_SUITE_P(LocalAndIsolated, ReaderTest, testing::Bool());

TEST_P(ReaderTest, RequestReachesTheFunctionOrIsRefused) {
  start();
  const std::string no_function = failure("未传入服务名！");
  const std::string unrecognised = failure("错误信息:无法识别的指令");
  const auto unsupported = [](const std::string& name) { return failure("不支持该功能.", name); };
  const std::string canned =
      R"({"result":"true","fid":"readcardbas","reader":"functions","command":)"
      R"({"data":{"itype":3,"bae140":"3"},)" +
      platform + "}}";
  expect_replies({
      {R"({"fid":"echo"})", echoed("{" + platform + "}")},
      {R"({"a":1,"b":{"fid":2},"FiD":"EcHo"})",
       echoed(R"({"a":1,"b":{"fid":2},)" + platform + "}")},
      {R"({"fid":"echo"} and more)", echoed("{" + platform + "}")},
      {R"({"fid":"echo","Platform":7})", echoed(R"({"Platform":7})")},
      {R"({ "fid":"echo" , "n" : [1.5,7e0], "s" : "\u0041\/\q\t\u0001\\\"/" })",
       echoed(R"({"n":[1.500000,7],"s":"A/q\t\u0001\\\"/",)" + platform + "}")},
      {R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})", canned},
      {"readcardbas", canned},
      {"readcardbas{}", canned},
      {R"({"fid":"PlaIN"})", R"({"result":"true","name":"张三","size":1.500000,"fid":"PlaIN"})"},
      {R"({"fid":"ec"})", R"({"result":"false","reader":"functions","fid":"ec"})"},
      {R"({"fid":"empty"})", R"({"fid":"empty"})"},
      {R"({"fid":"array"})", "[1,2]"},
      {R"({"fid":"digits"})", R"({"result":"true","n":1.234568,"unit":"fids","fid":"digits"})"},
      {R"({"fid":"capital"})", R"({"FID":7})"},
      {R"({"fid":"capitaltext"})", R"({"FID" : "x"})"},
      {R"({"fid":"读卡"})", unsupported("读卡")},
      {R"({"fid":"Config"})", unsupported("Config")},
      {R"({"fid":")" + std::string(99, 'z') + "\"}", unsupported(std::string(99, 'z'))},
      {R"({"fid":")" + std::string(100, 'z') + "\"}",
       failure(utf8(messages::kFunctionNameTooLong))},
      {R"({"fid":""})", no_function},
      {R"({"fid":7})", no_function},
      {R"({"data":{}})", no_function},
      {"{abcd}", no_function},
      {R"({"fid":"echo","n":1e999})", no_function},
      {"{\"fid\":\"echo\",\"n\":" + std::string(5000, '[') + "}", no_function},
      {"{abc}", unrecognised},
      {R"( {"fid":"echo"})", unrecognised},
      {"", unrecognised},
  });
}

TEST_P(ReaderTest, FunctionGoesToTheFirstReaderInPathOrderThatDeclaresIt) {
  start({"second", "first", "odd_answer", "garbage_answer", "endless_answer"});
  expect_replies({
      {R"({"fid":"ec"})", R"({"result":"false","reader":"first","fid":"ec"})"},
      {R"({"fid":"odd"})", R"({"result":"false","reader":"odd_answer","fid":"odd"})"},
      {R"({"fid":"fff"})", R"({"result":"false","reader":"endless_answer","fid":"fff"})"},
      {R"({"fid":"tail"})", failure("不支持该功能.", "tail")},
      {R"({"fid":"many"})", failure("不支持该功能.", "many")},
  });
}

TEST_P(ReaderTest, ReaderThatCannotBeLoadedIsNamedWithTheReasonAndTheOthersServe) {
  const std::string bin = (folder.path() / "bin/").string();
  const auto loader = [&](const std::string& file) {
    return "加载" + bin + file + "失败，请检查读卡环境！" + bin + file + ": ";
  };
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"no_init", "非法的" + bin + "no_init.so，未找到指定文件0！"},
      {"no_uninit", "非法的" + bin + "no_uninit.so，未找到指定文件1！"},
      {"no_scommand", "非法的" + bin + "no_scommand.so，未找到指定文件2！"},
      {"no_getversion", "非法的" + bin + "no_getversion.so，未找到指定文件3！"},
      {"getversion_fails", "没有读卡器"},
      {"init_fails", "初始化失败."},
      {"text", loader("text.so") + "file too short"},
      {"unresolved", loader("unresolved.so") + "undefined symbol: no_such_function"},
      {"none", loader("none.so") + "cannot open shared object file: No such file or directory"},
  };
  write_file(bin + "text.so", "text");
  std::vector<std::string> readers = {"getversion_throws", "functions", "functions"};
  for (const auto& row : refused) readers.push_back(row.first);
  start(readers);

  std::vector<std::string> errors = {
      bin + "functions.so loaded!  ",
      failure(R"(错误类型：St13runtime_error 错误信息 ：卡\"1\"\n )")};
  for (const auto& [reader, reason] : refused) {
    std::string error = "初始化";
    error.append(bin).append(reader).append(".so失败 ").append(reason).append(" ");
    errors.push_back(failure(error));
  }
  for (const std::string& error : errors) {
    EXPECT_TRUE(said("\n?error  = " + error + "?\n")) << error << "\n" << daemon->output();
    EXPECT_NE(std::string::npos, daemon->errors().find(gbk(error))) << daemon->errors();
  }
  EXPECT_EQ(echo_reply(1), ask(echo_request(1)));
}

TEST_P(ReaderTest, BrokenReplyOrExceptionCostsOneFailureReply) {
  start();
  const auto too_long = [](const std::string& name) {
    return failure(utf8(messages::kReplyTooLong), name);
  };
  const std::string exception = R"(错误类型：St13runtime_error 错误信息 ：卡\"1\"\n )";
  expect_replies({
      {R"({"fid":"longest"})", R"({"fid":")" + std::string(1013, 'x') + "\"}"},
      {R"({"fid":"noroom"})", R"({"r":")" + std::string(1015, 'x') + "\"}"},
      {R"({"fid":"endless"})", too_long("endless")},
      {R"({"fid":"overrun"})", too_long("overrun")},
      {R"({"fid":"halfchar"})", "{\"fid\":\"half\uFFFD\"}"},
      {R"({"fid":"nogbk"})", "\uFFFD\"fid\""},
      {R"({"fid":"throwtext"})", failure(exception)},
      {R"({"fid":"thrownumber"})", failure("错误类型：i 错误信息 ： ")},
      {echo_request(1), echo_reply(1)},
  });
  const std::string foreign = "functions.so: a reply is no GBK";
  EXPECT_TRUE(said(foreign));
  EXPECT_EQ(daemon->errors().find(foreign), daemon->errors().rfind(foreign));
  EXPECT_TRUE(said("functions.so: the reply to \"overrun\"")) << daemon->errors();
  EXPECT_NE(daemon->output().find(gbk(failure(exception))), std::string::npos);
}

TEST_P(ReaderTest, CannedRequestHasTwiceTheRoomAndGetsAnExceptionAsPlainText) {
  start({"canned"});
  expect_replies(
      {{"readcardbas", R"({"fid":")" + std::string(2037, 'x') + "\"}"},
       {R"({"fid":"readcardbas"})", failure(utf8(messages::kReplyTooLong), "readcardbas")}});
  TearDown();
  start({"throwing"});
  expect_replies({{"readcardbas", "错误类型：St13runtime_error 错误信息 ：卡\"1\"\n "}});
}

}  // namespace
