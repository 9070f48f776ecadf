#include "tests/support/text.h"

#include <stdexcept>

#include "util/text/converter.h"

namespace {

std::string converted(std::string_view text, const char* to, const char* from) {
  std::string result(2 * text.size(), '\0');  // no character becomes more than that longer
  char* out = result.data();
  size_t room = result.size();
  if (Converter(to, from).convert(text, out, room) != 0)
    throw std::runtime_error("not " + std::string(from) + ": " + std::string(text));
  result.resize(result.size() - room);
  return result;
}

}  // namespace

std::string gbk(std::string_view text) { return converted(text, "GBK", "UTF-8"); }

std::string utf8(std::string_view text) { return converted(text, "UTF-8", "GBK"); }

std::string failure(std::string_view reason, const std::string& fid) {
  const std::string member = fid.empty() ? "" : R"(,"fid":")" + fid + '"';
  return R"({"result":"false","errmsg":")" + std::string(reason) + '"' + member + "}";
}
