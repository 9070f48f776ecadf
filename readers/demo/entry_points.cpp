// The four entry points of the demo reader library. No exception leaves them.

#include <cstdio>
#include <memory>

#include "quorvel_reader.h"
#include "readers/demo/simulator.h"

namespace {

std::unique_ptr<Simulator> simulator;  // from init to uninit

void copy(char* out, std::size_t size, const std::string& text) {
  std::snprintf(out, size, "%s", text.c_str());
}

std::string hexadecimal(const std::string& text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 0xF];
  }
  return digits;
}

}  // namespace

int32_t getversion(char* /*verinfo*/, char* answer, char* /*verextra*/, char* error) {
  try {
    copy(answer, QUORVEL_ANSWER_SIZE, hexadecimal(Simulator::function_list()));
    return 1;
  } catch (...) {
    copy(error, QUORVEL_ERROR_SIZE, "out of memory");
    return 0;
  }
}

int32_t init(char* /*parameter*/) {
  try {
    simulator = std::make_unique<Simulator>();
    return 1;
  } catch (...) {
    return 0;
  }
}

void uninit() { simulator.reset(); }

int32_t scommand(const char* name, const char* command, char* reply) {
  try {
    const Simulator::Reply result = simulator->answer(name, command);
    copy(reply, QUORVEL_REPLY_SIZE, result.json);
    return result.success ? 1 : 0;
  } catch (...) {
    copy(reply, QUORVEL_REPLY_SIZE, "{\"result\":\"false\",\"errmsg\":\"internal error\"}");
    return 0;
  }
}
