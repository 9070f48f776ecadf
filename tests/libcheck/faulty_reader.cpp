// A reader library that breaks its contract in the way that the requested function names, or,
// outside of requests, as its function list says.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "sdk/quorvel_reader.h"

namespace {

std::string* last;

int32_t answer(char* reply, const char* text) {
  std::snprintf(reply, QUORVEL_REPLY_SIZE, "%s", text);
  return 1;
}

void block_signals() {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
}

/// True in a process that nobody is the parent of.
bool daemonised() {
  const pid_t pid = fork();
  if (pid == 0 && fork() != 0) _exit(0);
  if (pid > 0) waitpid(pid, nullptr, 0);
  return pid == 0;
}

int32_t misbehave(std::string_view name, const char* command, char* reply) {
  if (name == "crash") std::abort();
  if (name == "recursion") return misbehave(name, command, reply) + reply[0];
  if (name == "hang") return pause();
  if (name == "exit") std::exit(3);
  if (name == "throw") throw "text";
  if (name == "overrun") std::memset(reply, 'x', QUORVEL_REPLY_SIZE + 1);
  if (name == "overread") return command[std::strlen(command) + 1];
  if (name == "endless") return *static_cast<char*>(std::memset(reply, 'x', QUORVEL_REPLY_SIZE));
  if (name == "before") reply[-1] = 'x';
  if (name == "copies") std::strcpy(reply, command);
  if (name == "silent") return 1;
  if (name == "utf8") return answer(reply, R"({"result":"true","name":"读卡器"})");
  if (name == "halfchar") return answer(reply, "{\"result\":\"true\",\"name\":\"\x81\"}");
  if (name == "beyond") return answer(reply, "{\"result\":\"true\",\"name\":\"\x82\x31\xeb\x39\"}");
  if (name == "broken") return answer(reply, R"({"result":"true","name":"a"b"})");
  if (name == "boolean") return answer(reply, R"({"result":true})");
  if (name == "mute") return answer(reply, R"({"result":"false","fid":"mute"})") - 1;
  if (name == "digits") return answer(reply, R"({"result":"true","n":1.23456789})");
  if (name == "control") return answer(reply, "{\"result\":\"true\",\"fid\":\"a\nb\"}");
  if (name == "descriptor") open("/dev/null", O_RDONLY);
  if (name == "heap") last = new std::string(40, 'x');
  if (name == "prints") std::puts("now reading");
  if (name == "sigpipe") signal(SIGPIPE, SIG_DFL);
  if (name == "blocks") block_signals();
  if (name == "forks" && fork() == 0) return pause();
  if (name == "daemon" && daemonised()) return pause();
  if (name == "writes") const_cast<char*>(command)[1] = 'x';  // NOLINT: its fault
  if (name == "environment") setenv("TZ", "UTC", 1);
  if (name == "moves" && chdir("/") != 0) return 0;
  return answer(reply, R"({"result":"true"})");
}

bool started = false;
const std::string_view kFunctions = FUNCTIONS;

[[gnu::destructor]] void at_end() {
  if (started && kFunctions == "end") std::abort();
}

}  // namespace

int32_t getversion(char*, char* answer, char*, char*) {
  for (const char c : kFunctions) answer += std::snprintf(answer, 3, "%02x", c);
  return 1;
}

int32_t init(char*) {
  if (started && kFunctions == "once") return 0;
  started = true;
  return 1;
}

void uninit() { started = kFunctions == "once"; }

int32_t scommand(const char* name, const char* command, char* reply) {
  return misbehave(name, command, reply);
}
