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

std::optional<std::string> with_fid(const char* reply, std::string_view name) {
  constexpr char kFid[] = "fid";
  if (std::strstr(reply, "\"fid\"") != nullptr) return {};
  neb::CJsonObject json(std::string_view(reply), Charset::kGbk);
  std::string present;
  if (json.Get(kFid, present)) return {};
  const std::string fid = utf8_to_gbk(name);
  jsonadd(&json, kFid, as_bytes(fid.c_str()));
  return json.ToString();
}

void complete_fid(TextBuffer out, std::string_view name) {
  if (const auto completed = with_fid(out.data, name)) copy_text(out, *completed);
}

void write_reply(TextBuffer out, const neb::CJsonObject& json) {
  if (!copy_text(out, json.ToString())) write_failure(out, messages::kUnusableReply);
}
