// A reader library for tests. Compile definitions choose how it misbehaves while it is loaded and
// ended, the function asked for chooses how it answers or breaks the contract.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "sdk/quorvel_reader.h"

#ifndef INIT_RESULT
#define INIT_RESULT 1
#endif
#ifndef ANSWER
#define ANSWER function_list()
#endif
#ifndef REPLY
#define REPLY reply_of({name, command, reply})
#endif

extern "C" int32_t no_such_function();

namespace {

struct Call {
  std::string name;
  const char* command;
  char* reply;
};

struct Function {
  std::string name;
  std::function<std::string(const Call& call)> reply;
};

constexpr char kDone[] = R"({"result":"true"})";

std::string echo(const Call& call) {
  return R"({"result":"true","fid":")" + call.name + R"(","reader":")" READER R"(","command":)" +
         call.command + "}";
}

std::string length(const Call& call) {
  return "{\"length\":" + std::to_string(std::strlen(call.command)) + "}";
}

std::string throw_text(const Call&) { throw std::runtime_error("卡\"1\"\n"); }

std::string throw_number(const Call&) { throw 7; }

// What a library does that harms its process, or whoever is in it.

volatile int depth = 0;
std::string recurse(const Call& call) {
  depth = depth + 1;
  const int here = depth;
  return here < 0 ? call.name : recurse(call) + std::to_string(here);
}

/// Leaves a process behind that nobody is the parent of.
std::string daemonise(const Call&) {
  const pid_t pid = fork();
  if (pid == 0 && fork() == 0) pause();
  if (pid == 0) _exit(0);
  waitpid(pid, nullptr, 0);
  return kDone;
}

std::string block_signals(const Call&) {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  return kDone;
}

std::string* last = nullptr;

constexpr const char* kMisdeeds[] = {
    "crash",  "leave",      "hang", "late",   "unplug",  "breed",       "overread", "before",
    "writes", "descriptor", "heap", "prints", "sigpipe", "environment", "moves",    "forge"};

std::string misbehave(const Call& call) {
  const std::string& name = call.name;
  if (name == "crash") std::abort();
  if (name == "leave") std::exit(0);
  if (name == "hang") pause();
  if (name == "late") sleep(1);
  if (name == "unplug") close_range(3, ~0U, 0);
  if (name == "breed" && fork() == 0) pause();
  if (name == "overread" && call.command[std::strlen(call.command) + 1] != '\0') return kDone;
  if (name == "before") call.reply[-1] = 'x';
  if (name == "writes") const_cast<char*>(call.command)[1] = 'x';  // NOLINT: its fault
  if (name == "descriptor") open("/dev/null", O_RDONLY);           // NOLINT: likewise
  if (name == "heap") last = new std::string(40, 'x');
  if (name == "prints") std::puts("now reading");
  if (name == "sigpipe") std::signal(SIGPIPE, SIG_DFL);
  if (name == "environment") setenv("TZ", "UTC", 1);
  if (name == "moves" && chdir("/") != 0) return {};
  if (name == "forge" && write(3, "\2", 1) != 1) return {};  // as the helper's own word
  return R"({"result":"true","fid":")" + name + "\"}";
}

/// A reply of that many bytes.
std::string filled(std::size_t size) { return R"({"fid":")" + std::string(size - 10, 'x') + "\"}"; }

auto always(const std::string& text) {
  return [text](const Call&) { return text; };
}

const Function kFunctions[] = {
    {"echo", echo},
    {"readcardbas", echo},
    {"length", length},
    {"throwtext", throw_text},
    {"thrownumber", throw_number},
    {"recurse", recurse},
    {"daemon", daemonise},
    {"blocks", block_signals},
    {"plain", always("{ \"result\" : \"true\", \"name\" : \"张三\", \"size\" : 1.5 }")},
    {"empty", always("")},
    {"array", always("[1, 2]")},
    {"broken", always(R"({"result":"true","name":"a"b"})")},
    {"boolean", always(R"({"result":true})")},
    {"mute", always(R"({"result":"false","fid":"mute"})")},
    {"digits", always(R"({"result":"true","n":1.23456789,"unit":"fids"})")},
    {"control", always("{\"result\":\"true\",\"fid\":\"a\nb\"}")},
    {"capital", always("{\"FID\" : 7}")},
    {"capitaltext", always("{\"FID\" : \"x\"}")},
    {"halfchar", always("{\"fid\":\"half\x81\"}")},
    {"utf8", always("{\"result\":\"true\",\"name\":\"\xe8\xaf\xbb\xe5\x8d\xa1\xe5\x99\xa8\"}")},
    {"beyond", always("{\"result\":\"true\",\"name\":\"\x82\x31\xeb\x39\"}")},
    {"nogbk", always("\xff\"fid\"")},
    {"longest", always(filled(QUORVEL_REPLY_SIZE - 1))},
    {"noroom", always(R"({"r":")" + std::string(QUORVEL_REPLY_SIZE - 9, 'x') + "\"}")},
    {"endless", always(std::string(QUORVEL_REPLY_SIZE, 'x'))},
    // The text itself is short and good: only what is written behind it tells.
    {"overrun", always("{}" + std::string(QUORVEL_REPLY_SIZE, '\0'))},
};

[[maybe_unused]] std::string reply_of(const Call& call) {
  for (const Function& function : kFunctions)
    if (function.name == call.name) return function.reply(call);
  for (const char* misdeed : kMisdeeds)
    if (misdeed == call.name) return misbehave(call);
  return R"({"result":"false","reader":")" READER "\"}";
}

int32_t write(char* out, const std::string& text) {
  text.copy(out, text.size());
  return text.find(R"("result":"false")") == std::string::npos ? 1 : 0;
}

/// The functions' names, in hexadecimal.
[[maybe_unused]] std::string function_list() {
  std::string names;
  for (const Function& function : kFunctions) names += function.name + "\n";
  for (const char* misdeed : kMisdeeds) names.append(misdeed).append("\n");
  constexpr const char* kDigits = "0123456789abcdef";
  std::string list;
  for (const char c : names) (list += kDigits[c / 16]) += kDigits[c % 16];
  return list;
}

[[maybe_unused]] int starts = 0;
[[maybe_unused]] int ends = 0;

}  // namespace

#ifndef NO_GETVERSION
int32_t getversion(char*, char* answer, char*, [[maybe_unused]] char* error) {
#ifdef GETVERSION_FAILS
  write(error, "没有读卡器");
  return 0;
#endif
  return write(answer, ANSWER);
}
#endif

#ifndef NO_INIT
int32_t init(char*) {
  if (std::filesystem::exists("crash_in_init")) std::abort();
  ++starts;
  return INIT_RESULT;
}
#endif

#ifdef CONSTRUCTOR_THROWS
// As an exception does, where the compiler lets none out of the loader.
[[gnu::constructor]] void on_loading() { std::terminate(); }
#endif

#ifdef CRASHES_AT_THE_END
[[gnu::destructor]] void at_the_end() {
  if (starts > ends) std::abort();
}
#endif

#ifndef NO_UNINIT
void uninit() {
  std::puts("uninit of " READER);
  ++ends;
}
#endif

#ifndef NO_SCOMMAND
int32_t scommand([[maybe_unused]] const char* name, [[maybe_unused]] const char* command,
                 char* reply) {
  return write(reply, REPLY);
}
#endif
