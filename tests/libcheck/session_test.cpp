// quorvel-libcheck as a maker's daily tool: one call, a session taken home, the watch for builds.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <regex>

#include "tests/support/child_process.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

constexpr char kLibcheck[] = QUORVEL_STAGE "/bin/quorvel-libcheck";
constexpr char kDemo[] = QUORVEL_STAGE "/bin/libquorveldemo.so";
constexpr char kFaulty[] = FAULTY_READERS "/calls.so";
constexpr char kPrinting[] = FAULTY_READERS "/leaks.so";

std::string call(const std::string& function) { return R"(--call={"fid":")" + function + "\"}"; }

void expect_run(Strings arguments, const std::string& input, int status, const std::string& output,
                const std::string& error = {}) {
  arguments.insert(arguments.begin(), kLibcheck);
  const ProgramResult result = run_program(arguments, input);
  EXPECT_EQ(result.status, status) << testing::PrintToString(arguments) << result.errors;
  EXPECT_NE(result.output.find(output), std::string::npos) << result.output;
  EXPECT_NE(result.errors.find(error), std::string::npos) << "not " << error << result.errors;
}

/// Starts libcheck, with its standard output in the folder's file "out".
Launch launch(const fs::path& folder, Strings arguments) {
  arguments.insert(arguments.begin(), kLibcheck);
  return {kLibcheck, arguments, ".", "/dev/null", folder / "out", folder / "errors"};
}

TEST(LibcheckSession, CallsGetWhatThePageGets) {
  expect_run({call("CardPresent"), kDemo}, "", 0,
             "{\"result\":\"true\",\"fid\":\"cardpresent\",\"data\":{\"present\":\"true\"}}\n",
             " ms  cardpresent\n");
  expect_run({"--pretty", call("cardpresent"), kDemo}, "", 0, "\t\"fid\":\t\"cardpresent\",\n");
  expect_run({call("halfchar"), kFaulty}, "", 0, R"("name":"\ufffd")");
  expect_run({call("no.such"), kDemo}, "", 1, "不支持该功能");
  expect_run({call("crash"), call("plain"), kFaulty}, "", 1,
             "\"fid\":\"crash\"}\n{\"result\":\"true\",\"fid\":\"plain\"}\n",
             "crashed with SIGABRT");
  expect_run({"--timeout=1", call("hang"), kFaulty}, "", 1, "读卡超时", "no reply to \"hang\"");
  expect_run({call("a"), TEST_READERS "/getversion_fails.so"}, "", 2, "", "没有读卡器");
  const TemporaryFolder folder("link");  // as the package's in /usr/bin
  fs::create_symlink(kLibcheck, folder.path() / "libcheck");
  EXPECT_EQ(run_program({folder.path() / "libcheck", call("cardpresent"), kDemo}).status, 0);
  const ProgramResult printing = run_program({kLibcheck, call("prints"), kPrinting});
  EXPECT_EQ(printing.output, "{\"result\":\"true\",\"fid\":\"prints\"}\n");
}

TEST(LibcheckSession, ASessionIsKeptForItsOwnerAndReplayed) {
  const TemporaryFolder folder("session");
  const fs::path file = folder.path() / "desk.jsonl";
  const std::string lines =
      "cardpresent\n\n{bad\n\xFF\ngetconfig\n"
      "{\"fid\":\"readcardbas\",\"data\":{\"person\":\"zhangsan\"}}";
  expect_run({"--record", file, kDemo}, lines, 1, "\"name\":\"张三\"",
             "delete it when it has served");
  struct stat status = {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  const std::string session = read_file(file);
  EXPECT_EQ(std::count(session.begin(), session.end(), '\n'), 3);

  expect_run({"--record", file, call("cardpresent"), kDemo}, "", 2, "", "exists already");
  expect_run({"--record", folder.path() / "no" / "file", kDemo}, "", 2, "", "that you may write");
  EXPECT_EQ(read_file(file), session);

  expect_run({"--replay", file, kDemo}, "", 0, "calls: 2; same: 2, different: 0");
  const std::string other = std::regex_replace(session, std::regex("张三"), "李四");
  write_file(file, std::regex_replace(other, std::regex("\"ms\":"), "\"ms\":900"));
  expect_run({"--replay", file, kDemo}, "", 1, "data.name: \"李四\", now \"张三\"");
  expect_run({"--replay", file, kDemo}, "", 1, "different: 1, of clearly other time: 2");

  const std::string heading = session.substr(0, session.find('\n') + 1);
  for (const auto& [content, fault] : std::map<std::string, std::string>{
           {"", "line 1: this is no recorded session; name a file"},
           {"{\"session\":2}\n", "line 1: another version"},
           {heading, "holds no call; record one"},
           {session.substr(0, session.size() - 9), "line 3: it is no JSON object"},
           {heading + "{\"reply\":1}\n", "line 2: it has no text \"reply\"; delete the line"}}) {
    write_file(file, content);
    expect_run({"--replay", file, kDemo}, "", 2, "", fault);
  }
}

TEST(LibcheckSession, AnInterruptedRecordingKeepsTheCallsBefore) {
  const TemporaryFolder folder("session");
  const fs::path file = folder.path() / "desk.jsonl";
  ChildProcess recording(
      launch(folder.path(), {"--record", file, call("plain"), call("hang"), kFaulty}));
  const auto recorded = [&] { return fs::exists(file) && read_file(file).find("plain") + 1 != 0; };
  ASSERT_TRUE(eventually(recorded));
  expect_run({"--record", file, call("plain"), kFaulty}, "", 2, "", "exists already");
  recording.signal(SIGINT);
  EXPECT_EQ(recording.wait(), 0);
  expect_run({"--replay", file, kFaulty}, "", 0, "calls: 1; same: 1");
}

TEST(LibcheckSession, TheWatchRunsAgainForEachBuildUntilCtrlC) {
  const TemporaryFolder folder("watch");
  const fs::path library = folder.path() / "libreader.so";
  const auto replace = [&](const char* by) {
    fs::copy_file(by, folder.path() / "new");
    fs::rename(folder.path() / "new", library);
  };
  // The run with this number is over, and said so.
  const auto shown = [&](int number, const std::string& text) {
    return eventually([&] {
      std::string out = read_file(folder.path() / "out");
      for (int run = 0; run < number && !out.empty(); ++run) {
        const std::size_t heading = out.find("  /", out.find("==== "));
        out = heading == std::string::npos ? "" : out.substr(heading);
      }
      const std::size_t end = out.find("==== waiting for the next build");
      return end != std::string::npos && out.find(text) < end;
    });
  };
  replace(FAULTY_READERS "/once.so");
  write_file(folder.path() / "out", "");  // which the program opens only when it has started
  ChildProcess watch(launch(folder.path(), {"--watch", "--rounds=2", library}));
  ASSERT_TRUE(shown(1, "init returned 0"));
  replace(kDemo);
  ASSERT_TRUE(shown(2, "keeps the contract"));
  fs::remove(library);
  write_file(library, read_file(kDemo).substr(0, 20000));
  ASSERT_TRUE(shown(3, "cut short, or was written meanwhile"));
  write_file(library, read_file(FAULTY_READERS "/once.so"));
  ASSERT_TRUE(shown(4, "breaks the contract"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 1);
}

TEST(LibcheckSession, RefusesOptionsThatWouldBeLeftAside) {
  for (const Strings& options : {Strings{"--replay=a", "--record=b"},
                                 {"--replay=a", call("b")},
                                 {"--watch", "--record=a"},
                                 {"--watch", "--json"},
                                 {"--pretty"},
                                 {"--json", call("a")},
                                 {"--record="}}) {
    Strings arguments = options;
    arguments.emplace_back(kDemo);
    expect_run(arguments, "", 2, "", "Try quorvel-libcheck --help.");
  }
}

}  // namespace
