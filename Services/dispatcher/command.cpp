#include "Services/dispatcher/command.h"

#include "util/json/json_object.h"
#include "util/text/messages.h"

GbkView make_command(neb::CJsonObject& request, const char* platform, std::string& name) {
  constexpr std::string_view kFid = "fid";
  if (!request.Get(kFid, name) || name.empty()) return messages::kNoFunctionName;
  if (name.size() > kLongestName) return messages::kFunctionNameTooLong;
  request.Delete(kFid);
  request.Add("platform", platform);
  // Numbers may print longer than they were written.
  return request.ToString().size() > kLongestRequest ? messages::kMessageTooLong : GbkView();
}
