#include "util/json/failure_reply.h"

#include <string>

#include "util/json/json_text.h"
#include "util/text/gbk.h"

namespace {

constexpr std::string_view kEnvelopeStart = R"({"result":"false","errmsg":")";
constexpr std::string_view kEnvelopeEnd = R"("})";

}  // namespace

bool write_failure(TextBuffer out, GbkView errmsg) {
  const std::string reason = clean_gbk(errmsg.bytes(), out.size);
  std::string reply(kEnvelopeStart);
  std::string_view rest = reason;
  while (!rest.empty()) {
    const std::size_t before = reply.size();
    const std::size_t length = char_length(rest, Charset::kGbk);
    append_escaped(reply, rest.substr(0, length), Charset::kGbk);
    if (reply.size() + kEnvelopeEnd.size() >= out.size) {
      reply.resize(before);
      break;
    }
    rest.remove_prefix(length);
  }
  reply += kEnvelopeEnd;
  copy_text(out, reply);
  return false;
}
