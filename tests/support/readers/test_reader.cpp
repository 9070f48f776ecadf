// A reader library for tests. Compile definitions choose how it misbehaves while it is loaded, the
// function asked for chooses how it answers.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
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
#define REPLY reply_of(name, command)
#endif

extern "C" int32_t no_such_function();

namespace {

struct Function {
  std::string name;
  std::function<std::string(const std::string& name, const std::string& command)> reply;
};

std::string echo(const std::string& name, const std::string& command) {
  return R"({"result":"true","fid":")" + name + R"(","reader":")" READER R"(","command":)" +
         command + "}";
}

std::string length(const std::string&, const std::string& command) {
  return "{\"length\":" + std::to_string(command.size()) + "}";
}

std::string throw_text(const std::string&, const std::string&) {
  throw std::runtime_error("卡\"1\"\n");
}

std::string throw_number(const std::string&, const std::string&) { throw 7; }

// What a library does that harms its process.
volatile int depth = 0;
std::string recurse(const std::string& name, const std::string& command) {
  const int here = ++depth;
  return here < 0 ? name : recurse(name, command) + std::to_string(here);
}

std::string misbehave(const std::string& name, const std::string&) {
  if (name == "crash") std::abort();
  if (name == "leave") std::exit(0);
  if (name == "hang") pause();
  if (name == "late") sleep(1);
  if (name == "unplug") close_range(3, ~0U, 0);
  if (name == "breed" && fork() == 0) pause();
  return R"({"result":"true","fid":")" + name + "\"}";
}

/// A reply of that many bytes.
std::string filled(std::size_t size) { return R"({"fid":")" + std::string(size - 10, 'x') + "\"}"; }

auto always(const std::string& text) {
  return [text](const std::string&, const std::string&) { return text; };
}

const Function kFunctions[] = {
    {"echo", echo},
    {"readcardbas", echo},
    {"length", length},
    {"throwtext", throw_text},
    {"thrownumber", throw_number},
    {"crash", misbehave},
    {"leave", misbehave},
    {"hang", misbehave},
    {"late", misbehave},
    {"unplug", misbehave},
    {"breed", misbehave},
    {"recurse", recurse},
    {"plain", always("{ \"result\" : \"true\", \"name\" : \"张三\", \"size\" : 1.5 }")},
    {"empty", always("")},
    {"array", always("[1, 2]")},
    {"capital", always("{\"FID\" : 7}")},
    {"capitaltext", always("{\"FID\" : \"x\"}")},
    {"halfchar", always("{\"fid\":\"half\x81\"}")},
    {"nogbk", always("\xff\"fid\"")},
    {"longest", always(filled(QUORVEL_REPLY_SIZE - 1))},
    {"noroom", always(R"({"r":")" + std::string(QUORVEL_REPLY_SIZE - 9, 'x') + "\"}")},
    {"endless", always(std::string(QUORVEL_REPLY_SIZE, 'x'))},
    // The text itself is short and good: only what is written behind it tells.
    {"overrun", always("{}" + std::string(QUORVEL_REPLY_SIZE, '\0') + "x")},
};

[[maybe_unused]] std::string reply_of(const std::string& name, const std::string& command) {
  for (const Function& function : kFunctions)
    if (function.name == name) return function.reply(name, command);
  return R"({"result":"false","reader":")" READER "\"}";
}

int32_t write(char* out, const std::string& text) {
  text.copy(out, text.size());
  return 1;
}

/// The functions' names, in hexadecimal.
[[maybe_unused]] std::string function_list() {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string list;
  for (const Function& function : kFunctions) {
    for (const char c : function.name + "\n") (list += kDigits[c / 16]) += kDigits[c % 16];
  }
  return list;
}

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
  return INIT_RESULT;
}
#endif

#ifdef CONSTRUCTOR_THROWS
const int kNever = (throw_text({}, {}), 0);
#endif

#ifndef NO_UNINIT
void uninit() { std::puts("uninit of " READER); }
#endif

#ifndef NO_SCOMMAND
int32_t scommand([[maybe_unused]] const char* name, [[maybe_unused]] const char* command,
                 char* reply) {
  return write(reply, REPLY);
}
#endif
