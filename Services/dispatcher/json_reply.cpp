#include "Services/dispatcher/json_reply.h"

#include <cstring>

#include "util/json/failure_reply.h"
#include "util/json/json_object.h"
#include "util/text/bytes.h"
#include "util/text/conversion.h"
#include "util/text/messages.h"

namespace {

/// with_fid, of a NUL-terminated reply in GBK.
std::optional<Gbk> completed(const char* reply, Utf8View name) {
  constexpr char kFid[] = "fid";
  if (std::strstr(reply, "\"fid\"") != nullptr) return {};
  neb::CJsonObject json(std::string_view(reply), Charset::kGbk);
  std::string present;
  if (json.Get(kFid, present)) return {};
  jsonadd(&json, kFid, as_bytes(utf8_to_gbk(name).bytes().c_str()));
  return Gbk(json.ToString());
}

}  // namespace

void jsonadd(neb::CJsonObject* json, const char* key, const unsigned char* value) {
  json->Add(key, reinterpret_cast<const char*>(value));
}

std::optional<Gbk> with_fid(const Gbk& reply, Utf8View name) {
  return completed(reply.bytes().c_str(), name);
}

void complete_fid(TextBuffer out, Utf8View name) {
  if (const auto reply = completed(out.data, name)) copy_text(out, reply->bytes());
}

void write_reply(TextBuffer out, const neb::CJsonObject& json) {
  if (!copy_text(out, json.ToString())) write_failure(out, messages::kUnusableReply);
}
