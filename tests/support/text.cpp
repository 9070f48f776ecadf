#include "tests/support/text.h"

#include <iconv.h>

#include <memory>
#include <stdexcept>

namespace {

std::string converted(std::string_view text, const char* to, const char* from) {
  const std::unique_ptr<void, int (*)(iconv_t)> converter(iconv_open(to, from), iconv_close);
  std::string result(2 * text.size(), '\0');  // no character becomes more than that longer
  std::string source(text);
  char* in = source.data();
  char* out = result.data();
  size_t in_left = text.size();
  size_t out_left = result.size();
  if (iconv(converter.get(), &in, &in_left, &out, &out_left) != 0)
    throw std::runtime_error("not " + std::string(from) + ": " + source);
  result.resize(result.size() - out_left);
  return result;
}

}  // namespace

std::string gbk(std::string_view text) { return converted(text, "GBK", "UTF-8"); }

std::string utf8(std::string_view text) { return converted(text, "UTF-8", "GBK"); }

std::string failure(std::string_view reason, const std::string& fid) {
  const std::string member = fid.empty() ? "" : R"(,"fid":")" + fid + '"';
  return R"({"result":"false","errmsg":")" + std::string(reason) + '"' + member + "}";
}
