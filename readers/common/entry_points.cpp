// The four entry points of a reader library. No exception leaves them.

#include <cstdio>
#include <memory>

#include "quorvel_reader.h"
#include "readers/common/failure.h"
#include "readers/common/reader.h"
#include "util/text/conversion.h"
#include "util/text/hex.h"

namespace {

std::unique_ptr<Reader> reader;  // from init to uninit

void copy(char* out, std::size_t size, const std::string& text) {
  std::snprintf(out, size, "%s", text.c_str());
}

}  // namespace

int32_t getversion(char* /*verinfo*/, char* answer, char* /*verextra*/, char* error) {
  try {
    copy(answer, QUORVEL_ANSWER_SIZE, hexadecimal(function_list()));
    return 1;
  } catch (const Failure& failure) {
    copy(error, QUORVEL_ERROR_SIZE, utf8_to_gbk(Utf8View(failure.what())).bytes());
  } catch (...) {
    copy(error, QUORVEL_ERROR_SIZE, "out of memory");
  }
  return 0;
}

int32_t init(char* /*parameter*/) {
  try {
    reader = make_reader();
    return 1;
  } catch (...) {
    return 0;
  }
}

void uninit() { reader.reset(); }

int32_t scommand(const char* name, const char* command, char* reply) {
  try {
    const Reply result = reader->answer(name, command);
    copy(reply, QUORVEL_REPLY_SIZE, result.json);
    return result.success ? 1 : 0;
  } catch (...) {
    copy(reply, QUORVEL_REPLY_SIZE, "{\"result\":\"false\",\"errmsg\":\"internal error\"}");
    return 0;
  }
}
