#include "Services/dispatcher/json_reply.h"

#include <cstring>

#include "util/json/failure_reply.h"
#include "util/json/json_object.h"
#include "util/text/bytes.h"
#include "util/text/conversion.h"
#include "util/text/messages.h"

void jsonadd(neb::CJsonObject* json, const char* key, const unsigned char* value) {
  json->Add(key, reinterpret_cast<const char*>(value));
}

std::optional<Gbk> with_fid(GbkView reply, Utf8View name) {
  constexpr char kFid[] = "fid";
  constexpr std::string_view kQuotedFid = "\"fid\"";
  const std::string_view text = reply.bytes();
  // The C library's search is several times as fast as the one of std::string_view.
  if (memmem(text.data(), text.size(), kQuotedFid.data(), kQuotedFid.size()) != nullptr) return {};
  neb::CJsonObject json(text, Charset::kGbk);
  std::string present;
  if (json.Get(kFid, present)) return {};
  jsonadd(&json, kFid, as_bytes(utf8_to_gbk(name).bytes().c_str()));
  return Gbk(json.ToString());
}

void complete_fid(TextBuffer out, Utf8View name) {
  if (const auto completed = with_fid(GbkView(out.data), name)) copy_text(out, completed->bytes());
}

void write_reply(TextBuffer out, const neb::CJsonObject& json) {
  if (!copy_text(out, json.ToString())) write_failure(out, messages::kUnusableReply);
}
