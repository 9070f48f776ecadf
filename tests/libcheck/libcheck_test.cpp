// quorvel-libcheck from the outside: it names each fault of a library, and good libraries pass.

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <regex>

#include "tests/support/child_process.h"
#include "tests/support/files.h"

namespace {

using Strings = std::vector<std::string>;

constexpr char kLibcheck[] = QUORVEL_STAGE "/bin/quorvel-libcheck";
constexpr char kDemo[] = QUORVEL_STAGE "/bin/libquorveldemo.so";

/// Runs libcheck and expects its exit status and, for each text, a line that holds it; the blanks
/// between the columns count as one.
void expect_findings(Strings arguments, int status, const Strings& texts) {
  arguments.insert(arguments.begin(), kLibcheck);
  const ProgramResult result = run_program(arguments);
  const std::string all =
      std::regex_replace(result.output + result.errors, std::regex(" +([0-9.]+ ms)? *"), " ");
  EXPECT_EQ(result.status, status) << testing::PrintToString(arguments);
  for (const std::string& text : texts)
    EXPECT_NE(all.find(text), std::string::npos) << "missing: " << text << "\n" << result.output;
}

std::string request(const std::string& function) {
  return R"(--request={"fid":")" + function + "\"}";
}

TEST(LibcheckTest, NamesTheFaultAndTheCallOfEachFunction) {
  expect_findings(
      {"--timeout=1", "--rounds=2", FAULTY_READERS "/calls.so"}, 1,
      {"FAIL crash scommand crashed with SIGABRT",
       "FAIL recursion scommand crashed with SIGSEGV",
       "FAIL hang scommand did not return within 1 s",
       "FAIL exit scommand ended the process with exit status 3",
       "FAIL throw scommand let an exception out",
       "FAIL overrun scommand went past the end of the reply buffer (1024 bytes)",
       "FAIL overread scommand went past the end of the command text",
       "FAIL before scommand wrote before the start of the reply buffer",
       "FAIL endless the reply has no terminating zero",
       "FAIL copies (data nested 900 deep and ",
       "FAIL silent the reply is empty",
       "FAIL utf8 the reply is UTF-8, not GBK",
       "ok beyond (GB18030 beyond GBK, which pages get too) {\"result\":\"true\",",
       "\"name\":\"\u3DC8\"",
       "FAIL halfchar the reply is not valid GBK (or GB18030) after \"{\"result\":\"true\"",
       "FAIL broken the reply is not one JSON object",
       "FAIL boolean the reply has no member \"result\"",
       "warn mute the failure reply has no \"errmsg\"",
       "FAIL digits the service changes the reply when it adds \"fid\"",
       "FAIL control a text in the reply holds a control byte",
       "FAIL unknown functions (an unknown name and 4 more) the reply says \"true\"",
       "ok isolation if it must be used before it is mended: \"libN=30\""});
}

TEST(LibcheckTest, NamesTheFaultsOfLoadingAndOfTheLifecycle) {
  const std::string leaks = FAULTY_READERS "/leaks.so";
  expect_findings({TEST_READERS "/no_uninit.so"}, 1,
                  {"FAIL dlsym dlsym finds no entry point uninit"});
  expect_findings({TEST_READERS "/init_fails.so"}, 1, {"FAIL init init returned 0"});
  expect_findings(
      {TEST_READERS "/getversion_fails.so"}, 1,
      {"FAIL getversion it returned 0", "没有读卡器", "cure: The reason is the library's own"});
  expect_findings({TEST_READERS "/garbage_answer.so"}, 1, {"FAIL function list \"!\" is no hex"});
  expect_findings({TEST_READERS "/endless_answer.so"}, 1, {"FAIL getversion the answer has no"});
  expect_findings({FAULTY_READERS "/names.so", kDemo}, 1,
                  {"warn function list \"Capital\" can't be requested",
                   "warn function list \"getconfig\" never arrives",
                   "warn function list \"read\" is part of \"readcardbas\"",
                   "warn overlap \"readcardbas\" occurs in both lists"});
  expect_findings({FAULTY_READERS "/once.so"}, 1, {"FAIL init and uninit init returned 0"});
  expect_findings({FAULTY_READERS "/end.so"}, 1, {"FAIL end the end of the process crashed"});
  expect_findings({leaks, request("descriptor")}, 1,
                  {"FAIL calls 20 rounds of scommand leave behind 20 open"});
#ifndef __SANITIZE_ADDRESS__  // which leaves the memory out
  expect_findings({leaks, request("heap")}, 1,
                  {"FAIL calls 20 rounds of scommand leave", "bytes of heap"});
#endif
  expect_findings({leaks, request("prints")}, 1, {"warn output", ": now reading"});
  for (const auto& [function, finding] : std::map<std::string, std::string>{
           {"moves",
            "FAIL process scommand changes what belongs to the service: working directory"},
           {"sigpipe",
            "FAIL process scommand changes what belongs to the service: action of SIGPIPE"},
           {"blocks", "FAIL process scommand changes what belongs to the service: blocked signals"},
           {"environment",
            "FAIL process scommand changes what belongs to the service: environment"},
           {"forks", "FAIL process scommand leaves behind a process"},
           {"daemon", "FAIL process init or scommand leaves behind a process"},
           {"writes", "FAIL writes scommand wrote into the command text"}})
    expect_findings({leaks, request(function)}, 1, {finding});
}

TEST(LibcheckTest, ExplainsWhatItCanNotCheck) {
  const std::string own = request("getconfig");  // answered by the service itself
  for (const Strings& arguments : {Strings{}, {"/no/such.so"}, {"--rounds=1", kDemo}, {own, kDemo}})
    expect_findings(arguments, 2, {"Try quorvel-libcheck --help."});
  expect_findings({QUORVEL_STAGE "/bin/quorvel_service.ini"}, 2, {"FAIL loading dlopen failed"});
}

TEST(LibcheckTest, SaysWhyTheServiceWouldNotLoadWhatLoadsHere) {
  const TemporaryFolder folder("读卡");
  const std::filesystem::path library = folder.path() / "libreader.so";
  std::filesystem::copy_file(kDemo, library);
  const auto allow = [](const std::filesystem::path& path, unsigned mode) {
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(mode));
  };
  const std::string warning = "warn place the service can't open it here: ";
  const std::string cure = "cure: Before you list it, copy it to /opt/apps/quorvelserver/bin";
  expect_findings({library}, 0,
                  {warning + "its user may not enter " + folder.path().string(), cure});

  const std::string sdk = QUORVEL_STAGE "/sdk";
  const std::string driver = folder.path() / "libdriver.so";
  const std::string linked = folder.path() / "liblinked.so";
  run_program({"gcc", "-shared", "-o", driver, "-x", "c", "/dev/null"});
  run_program({"gcc", "-shared", "-fPIC", "-fexec-charset=GBK", "-I" + sdk + "/include",
               "-Wl,--no-as-needed", "-o", linked, sdk + "/example/minimal_reader.c", driver});
  expect_findings({linked}, 0, {"can't open " + driver + ", which it is linked with: its user"});

  allow(folder.path(), 0755);
  allow(library, 0600);
  expect_findings({library}, 0, {warning + "its user may not read the file", cure});
  allow(library, 0644);
  expect_findings({library}, 0, {warning + "the unit hides /tmp from it", cure});
  const std::string unit = read_file(QUORVEL_UNIT);
  EXPECT_NE(unit.find("\nProtectHome=yes\nPrivateTmp=yes\n"), std::string::npos);
}

TEST(LibcheckTest, ShowsTheFaultsThatTheDemoLibraryActsOut) {
  Strings arguments = {"--rounds=2", kDemo};
  Strings replies;
  for (const auto& [person, reply] : std::map<std::string, std::string>{
           {"ouyangcheng", R"("result":"true","fid":"readcardbas","data":{"name":"歐陽誠")"},
           {"pulled", R"("result":"false","fid":"readcardbas","errcode":"1003")"},
           {"lost", R"("result":"false","fid":"readcardbas","errcode":"-1101")"},
           {"nobody", R"("result":"false","fid":"readcardbas","errcode":"2004")"}}) {
    arguments.push_back(R"(--request={"fid":"ReadCardBas","data":{"person":")" + person + "\"}}");
    replies.push_back("ok readcardbas {" + reply);
  }
  expect_findings(arguments, 0, replies);
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
  const std::string sdk = QUORVEL_STAGE "/sdk";
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

}  // namespace
