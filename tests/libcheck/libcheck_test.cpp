// quorvel-libcheck from the outside: it names each fault of a library, and good libraries pass; and
// as a maker's daily tool: one call, a session taken home, the watch for builds.

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <regex>

#include "tests/support/child_process.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Texts = std::map<std::string, std::string>;

constexpr char kLibcheck[] = QUORVEL_STAGE "/bin/quorvel-libcheck";
constexpr char kDemo[] = QUORVEL_STAGE "/bin/libquorveldemo.so";
constexpr char kFunctions[] = TEST_READERS "/functions.so";
constexpr char kSdk[] = QUORVEL_STAGE "/sdk";

std::string reader(const std::string& name) { return TEST_READERS "/" + name + ".so"; }
std::string request(const std::string& function) {
  return R"(--request={"fid":")" + function + "\"}";
}
std::string call(const std::string& function) { return R"(--call={"fid":")" + function + "\"}"; }

/// Runs libcheck and expects its exit status and each text among what it says; blanks, and times
/// between them, count as one.
void expect_run(Strings arguments, int status, const Strings& texts,
                const std::string& input = {}) {
  arguments.insert(arguments.begin(), kLibcheck);
  const ProgramResult result = run_program(arguments, input);
  const std::string all =
      std::regex_replace(result.output + result.errors, std::regex(" +([0-9.]+ ms)? *"), " ");
  EXPECT_EQ(result.status, status) << testing::PrintToString(arguments) << all;
  for (const std::string& text : texts)
    EXPECT_NE(all.find(text), std::string::npos) << "missing: " << text << "\n" << all;
}

TEST(LibcheckTest, NamesTheFaultAndTheCallOfEachFunction) {
  const Texts findings = {
      {"crash", "FAIL crash scommand crashed with SIGABRT"},
      {"recurse", "FAIL recurse scommand crashed with SIGSEGV"},
      {"hang", "FAIL hang scommand did not return within 1 s"},
      {"leave", "FAIL leave scommand ended the process with exit status 0"},
      {"thrownumber", "FAIL thrownumber scommand let an exception out"},
      {"overrun", "FAIL overrun scommand went past the end of the reply buffer (1024 bytes)"},
      {"overread", "FAIL overread scommand went past the end of the command text"},
      {"before", "FAIL before scommand wrote before the start of the reply buffer"},
      {"endless", "FAIL endless the reply has no terminating zero"},
      {"echo", "FAIL echo (data nested 900 deep and "},
      {"empty", "FAIL empty the reply is empty"},
      {"utf8", "FAIL utf8 the reply is UTF-8, not GBK"},
      {"beyond",
       "ok beyond (GB18030 beyond GBK, which pages get too) {\"result\":\"true\","
       "\"name\":\"\u3DC8\""},
      {"halfchar", "FAIL halfchar the reply is not valid GBK (or GB18030) after \"{\"fid\":\"half"},
      {"broken", "FAIL broken the reply is not one JSON object"},
      {"boolean", "FAIL boolean the reply has no member \"result\""},
      {"mute", "warn mute the failure reply has no \"errmsg\""},
      {"digits", "FAIL digits the service changes the reply when it adds \"fid\""},
      {"control", "FAIL control a text in the reply holds a control byte"},
      {"descriptor", "FAIL calls 2 rounds of scommand leave behind 2 open"},
#ifndef __SANITIZE_ADDRESS__  // which leaves the memory out
      {"heap", "FAIL calls 2 rounds of scommand leave behind "},
#endif
      {"plain", "warn output it prints on the service's standard streams, up to dlclose: uninit"},
      {"moves", "FAIL process scommand changes what belongs to the service: working directory"},
      {"sigpipe", "FAIL process scommand changes what belongs to the service: action of SIGPIPE"},
      {"blocks", "FAIL process scommand changes what belongs to the service: blocked signals"},
      {"environment", "FAIL process scommand changes what belongs to the service: environment"},
      {"breed", "FAIL process scommand leaves behind a process"},
      {"daemon", "FAIL process init or scommand leaves behind a process"},
      {"writes", "FAIL writes scommand wrote into the command text"}};
  for (const auto& [function, finding] : findings)
    expect_run({"--timeout=1", "--rounds=2", kFunctions, request(function)},
               finding.rfind("FAIL", 0) == 0 ? 1 : 0, {finding});
}

TEST(LibcheckTest, NamesTheFaultsOfLoadingAndOfTheLifecycle) {
  const std::pair<Strings, Strings> rows[] = {
      {{reader("no_uninit")}, {"FAIL dlsym dlsym finds no entry point uninit"}},
      {{reader("init_fails")}, {"FAIL init init returned 0"}},
      {{reader("getversion_fails")},
       {"FAIL getversion it returned 0", "没有读卡器", "cure: The reason is the library's own"}},
      {{reader("garbage_answer")}, {"FAIL function list \"!\" is no hex"}},
      {{reader("endless_answer")}, {"FAIL getversion the answer has no"}},
      {{reader("names"), kDemo},
       {"warn function list \"Capital\" can't be requested",
        "warn function list \"getconfig\" never arrives",
        "warn function list \"read\" is part of \"readcardbas\"",
        "warn overlap \"readcardbas\" occurs in both lists",
        "FAIL unknown functions (an unknown name and 4 more) the reply says \"true\"",
        "ok isolation if it must be used before it is mended: \"libN=30\""}},
      {{reader("init_fails_again"), request("plain")}, {"FAIL init and uninit init returned 0"}},
      {{reader("crashes_at_the_end"), request("plain")},
       {"FAIL end the end of the process crashed"}}};
  for (const auto& [arguments, findings] : rows) expect_run(arguments, 1, findings);
}

TEST(LibcheckTest, ExplainsWhatItCanNotCheckOrDo) {
  for (const Strings& arguments : {Strings{},
                                   {"/no/such.so"},
                                   {"--rounds=1", kDemo},
                                   {request("getconfig"), kDemo},  // the service's own answer
                                   {"--replay=a", "--record=b", kDemo},
                                   {"--replay=a", call("b"), kDemo},
                                   {"--watch", "--record=a", kDemo},
                                   {"--watch", "--json", kDemo},
                                   {"--pretty", kDemo},
                                   {"--json", call("a"), kDemo},
                                   {"--record=", kDemo}})
    expect_run(arguments, 2, {"Try quorvel-libcheck --help."});
  expect_run({QUORVEL_STAGE "/bin/quorvel_service.ini"}, 2, {"FAIL loading dlopen failed"});
}

TEST(LibcheckTest, SaysWhyTheServiceWouldNotLoadWhatLoadsHere) {
  const TemporaryFolder folder("读卡");
  const fs::path library = folder.path() / "libreader.so";
  fs::copy_file(kDemo, library);
  const std::string warning = "warn place the service can't open it here: ";
  const std::string cure = "cure: Before you list it, copy it to /opt/apps/quorvelserver/bin";
  expect_run({library}, 0, {warning + "its user may not enter " + folder.path().string(), cure});

  const std::string sdk = kSdk;
  const std::string driver = folder.path() / "libdriver.so";
  const std::string linked = folder.path() / "liblinked.so";
  run_program({"gcc", "-shared", "-o", driver, "-x", "c", "/dev/null"});
  run_program({"gcc", "-shared", "-fPIC", "-fexec-charset=GBK", "-I" + sdk + "/include",
               "-Wl,--no-as-needed", "-o", linked, sdk + "/example/minimal_reader.c", driver});
  expect_run({linked}, 0, {"can't open " + driver + ", which it is linked with: its user"});

  fs::permissions(folder.path(), fs::perms(0755));
  fs::permissions(library, fs::perms(0600));
  expect_run({library}, 0, {warning + "its user may not read the file", cure});
  fs::permissions(library, fs::perms(0644));
  expect_run({library}, 0, {warning + "the unit hides /tmp from it", cure});
  const std::string unit = read_file(QUORVEL_UNIT);
  EXPECT_NE(unit.find("\nProtectHome=yes\nPrivateTmp=yes\n"), std::string::npos);
}

TEST(LibcheckTest, PassesTheDemoLibraryAndReportsInJson) {
  const ProgramResult result = run_program({kLibcheck, "--json", kDemo});
  EXPECT_EQ(result.status, 0);
  const std::unique_ptr<cJSON, void (*)(cJSON*)> report(cJSON_Parse(result.output.c_str()),
                                                        cJSON_Delete);
  const int checks = cJSON_GetArraySize(cJSON_GetObjectItem(report.get(), "checks"));
  EXPECT_GT(checks, 0);
  // The test's folder can be one that the service does not see.
  const int seen = result.output.find("the service can't open it here") == std::string::npos;
  EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(report.get(), "ok")), checks - 1 + seen)
      << result.output;
  EXPECT_NE(result.output.find(R"(\"name\":\"张三\")"), std::string::npos);
}

TEST(LibcheckTest, PassesTheExampleOfTheInstalledKitBuiltEitherWay) {
  const std::string sdk = kSdk;
  const std::string folder = BUILD_FOLDER "/example";
  const std::string by_gcc = BUILD_FOLDER "/libminimal_reader.so";
  for (const Strings& command :
       {Strings{"gcc", "-std=c99", "-Wall", "-Wextra", "-Werror", "-shared", "-fPIC",
                "-fvisibility=hidden", "-fexec-charset=GBK", "-I" + sdk + "/include", "-o", by_gcc,
                sdk + "/example/minimal_reader.c"},
        {"cmake", "-S", sdk + "/example", "-B", folder, "-DCMAKE_PREFIX_PATH=" + sdk},
        {"cmake", "--build", folder},
        {kLibcheck, by_gcc},
        {kLibcheck, folder + "/libminimal_reader.so", by_gcc}}) {
    const ProgramResult result = run_program(command);
    ASSERT_EQ(result.status, 0) << testing::PrintToString(command) << result.output
                                << result.errors;
  }
}

TEST(LibcheckTest, CallsGetWhatThePageGets) {
  expect_run({call("CardPresent"), kDemo}, 0,
             {"{\"result\":\"true\",\"fid\":\"cardpresent\",\"data\":{\"present\":\"true\"}}\n",
              " cardpresent\n"});
  expect_run({R"(--call={"fid":"ReadCardBas","data":{"person":"pulled"}})", kDemo}, 1,
             {R"({"result":"false","fid":"readcardbas","errcode":"1003")"});
  expect_run({"--pretty", call("cardpresent"), kDemo}, 0, {"\t\"fid\":\t\"cardpresent\",\n"});
  expect_run({call("halfchar"), kFunctions}, 1, {"{\"fid\":\"half\uFFFD\"}\n"});
  expect_run({call("no.such"), kDemo}, 1, {"不支持该功能"});
  expect_run(
      {call("crash"), call("writes"), kFunctions}, 1,
      {"\"fid\":\"crash\"}\n{\"result\":\"true\",\"fid\":\"writes\"}\n", "crashed with SIGABRT"});
  expect_run({"--timeout=1", call("hang"), kFunctions}, 1, {"读卡超时", "no reply to \"hang\""});
  expect_run({call("a"), reader("getversion_fails")}, 2, {"没有读卡器"});
  const TemporaryFolder folder("link");  // as the package's in /usr/bin
  fs::create_symlink(kLibcheck, folder.path() / "libcheck");
  EXPECT_EQ(run_program({folder.path() / "libcheck", call("cardpresent"), kDemo}).status, 0);
  const ProgramResult printing = run_program({kLibcheck, call("prints"), kFunctions});
  EXPECT_EQ(printing.output, "{\"result\":\"true\",\"fid\":\"prints\"}\n");
}

TEST(LibcheckTest, ASessionIsKeptForItsOwnerAndReplayed) {
  const TemporaryFolder folder("session");
  const fs::path file = folder.path() / "desk.jsonl";
  const std::string lines =
      "cardpresent\n\n{bad\n\xFF\ngetconfig\n"
      "{\"fid\":\"readcardbas\",\"data\":{\"person\":\"zhangsan\"}}";
  expect_run({"--record", file, kDemo}, 1, {"\"name\":\"张三\"", "delete it when it has served"},
             lines);
  struct stat status = {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  const std::string session = read_file(file);
  EXPECT_EQ(std::count(session.begin(), session.end(), '\n'), 3);

  expect_run({"--record", file, call("cardpresent"), kDemo}, 2, {"exists already"});
  expect_run({"--record", folder.path() / "no" / "file", kDemo}, 2, {"that you may write"});
  EXPECT_EQ(read_file(file), session);

  expect_run({"--replay", file, kDemo}, 0, {"calls: 2; same: 2, different: 0"});
  const std::string other = std::regex_replace(session, std::regex("张三"), "李四");
  write_file(file, std::regex_replace(other, std::regex("\"ms\":"), "\"ms\":900"));
  expect_run({"--replay", file, kDemo}, 1,
             {"data.name: \"李四\", now \"张三\"", "different: 1, of clearly other time: 2"});

  const std::string heading = session.substr(0, session.find('\n') + 1);
  for (const auto& [content, fault] :
       Texts{{"", "line 1: this is no recorded session; name a file"},
             {"{\"session\":2}\n", "line 1: another version"},
             {heading, "holds no call; record one"},
             {session.substr(0, session.size() - 9), "line 3: it is no JSON object"},
             {heading + "{\"reply\":1}\n", "line 2: it has no text \"reply\"; delete the line"}}) {
    write_file(file, content);
    expect_run({"--replay", file, kDemo}, 2, {fault});
  }
}

/// Starts libcheck, with its standard output in the folder's file "out".
Launch launch(const fs::path& folder, Strings arguments) {
  arguments.insert(arguments.begin(), kLibcheck);
  return {kLibcheck, arguments, ".", "/dev/null", folder / "out", folder / "errors"};
}

TEST(LibcheckTest, AnInterruptedRecordingKeepsTheCallsBefore) {
  const TemporaryFolder folder("session");
  const fs::path file = folder.path() / "desk.jsonl";
  ChildProcess recording(
      launch(folder.path(), {"--record", file, call("plain"), call("hang"), kFunctions}));
  const auto recorded = [&] { return fs::exists(file) && read_file(file).find("plain") + 1 != 0; };
  ASSERT_TRUE(eventually(recorded));
  expect_run({"--record", file, call("plain"), kFunctions}, 2, {"exists already"});
  recording.signal(SIGINT);
  EXPECT_EQ(recording.wait(), 0);
  expect_run({"--replay", file, kFunctions}, 0, {"calls: 1; same: 1"});
}

TEST(LibcheckTest, TheWatchRunsAgainForEachBuildUntilCtrlC) {
  const TemporaryFolder folder("watch");
  const fs::path library = folder.path() / "libreader.so";
  const auto replace = [&](const std::string& by) {
    fs::copy_file(by, folder.path() / "new");
    fs::rename(folder.path() / "new", library);
  };
  // A further run is over, and said so.
  std::size_t seen = 0;
  const auto shown = [&](const std::string& text) {
    return eventually([&] {
      const std::string out = read_file(folder.path() / "out").substr(seen);
      const std::size_t end = out.find("==== waiting for the next build");
      if (end == std::string::npos) return false;
      seen += end + 1;
      return out.find(text) < end;
    });
  };
  replace(reader("init_fails"));
  write_file(folder.path() / "out", "");  // which the program opens only when it has started
  ChildProcess watch(launch(folder.path(), {"--watch", "--rounds=2", library}));
  ASSERT_TRUE(shown("init returned 0"));
  replace(kDemo);
  ASSERT_TRUE(shown("keeps the contract"));
  fs::remove(library);
  write_file(library, read_file(kDemo).substr(0, 20000));
  ASSERT_TRUE(shown("cut short, or was written meanwhile"));
  write_file(library, read_file(reader("init_fails")));
  ASSERT_TRUE(shown("breaks the contract"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 1);
}

}  // namespace
