#include "Services/dispatcher/dispatcher.h"

#include <cstring>
#include <string>

#include "libs/lib_manager.h"
#include "util/gbk.h"
#include "util/json_object.h"
#include "util/messages.h"

namespace {

constexpr char kFid[] = "fid";
constexpr char kQuotedFid[] = "\"fid\"";
constexpr char kPlatform[] = "platform";

const unsigned char* bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): clearing 200 KiB would cost a request
// dear
Jdispatcher::Jdispatcher(LibManager* registry, const char* text)
    : mgr(registry), request_fits(copy_text(request, sizeof request, text)) {
  if (!request_fits) request[0] = '\0';
  command[0] = fid[0] = '\0';
}

bool Jdispatcher::init(char* out, const char* platform, std::size_t size) {
  const auto refuse = [out, size](const char* reason) {
    write_failure(out, size, reason);
    return false;
  };
  if (!request_fits) return refuse(messages::kMessageTooLong);
  neb::CJsonObject json(request);
  std::string name;
  if (!json.Get(kFid, name) || name.empty()) return refuse(messages::kNoFunctionName);
  if (name.size() >= sizeof fid) return refuse(messages::kFunctionNameTooLong);
  json.Delete(kFid);
  json.Add(kPlatform, platform);
  // Numbers may print longer than they were written.
  if (!copy_text(command, sizeof command, json.ToString()))
    return refuse(messages::kMessageTooLong);
  return copy_text(fid, sizeof fid, name);
}

bool Jdispatcher::dispatch(char* out, std::size_t size) {
  if (std::strcmp(fid, "config") == 0) return update_settings(out, size);
  if (std::strcmp(fid, "getconfig") == 0) return read_settings(out, size);
  return forward(out, size);
}

bool Jdispatcher::forward(char* out, std::size_t size) {
  const int result =
      mgr->call_cmd(bytes(fid), bytes(command), reinterpret_cast<unsigned char*>(out), size);
  // A reply that has no room for its "fid" goes out as the library wrote it.
  if (const auto completed = with_fid(out, fid)) copy_text(out, size, *completed);
  return result != 0;
}

std::optional<std::string> with_fid(std::string_view reply, std::string_view name) {
  if (reply.find(kQuotedFid) != std::string_view::npos) return {};
  neb::CJsonObject json(mask_backslashes(reply));
  std::string present;
  if (json.Get(kFid, present)) return {};
  // The name comes from the client in UTF-8, the reply is GBK: bytes that are no GBK would cut the
  // whole reply short when it is converted.
  jsonadd(&json, kFid, bytes(clean_gbk(name).c_str()));
  return unmask_backslashes(json.ToString());
}

void jsonadd(neb::CJsonObject* json, const char* key, const unsigned char* value) {
  json->Add(key, reinterpret_cast<const char*>(value));
}

void write_reply(char* out, std::size_t size, const neb::CJsonObject& json) {
  if (!copy_text(out, size, json.ToString())) write_failure(out, size, messages::kUnusableReply);
}
