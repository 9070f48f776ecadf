#include "tools/libcheck/reply_difference.h"

#include "tools/libcheck/text.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

constexpr std::size_t kColumns = 60;  // of one value

std::string printed(const cJSON* value) {
  if (value == nullptr) return translated("none");
  return shortened(compact_json(value), kColumns);
}

/// Two long values can differ beyond what is shown of them.
std::string describe(const std::string& path, const cJSON* then, const cJSON* now) {
  const std::string before = printed(then);
  const std::string after = printed(now);
  const std::string name = path.empty() ? "" : shortened(path, kColumns) + ": ";
  return name +
         format_text(translated("%s, now %s"), before.c_str(),
                     before == after ? translated("another of the same beginning") : after.c_str());
}

void compare(const std::string& path, const cJSON* then, const cJSON* now,
             std::vector<std::string>& out) {
  if (cJSON_Compare(then, now, 1) != 0) return;
  if (!cJSON_IsObject(then) || !cJSON_IsObject(now)) {
    out.push_back(describe(path, then, now));
    return;
  }
  const auto path_of = [&](const cJSON* member) {
    return path + (path.empty() ? "" : ".") + member->string;
  };
  for (const cJSON* member = then->child; member != nullptr; member = member->next)
    compare(path_of(member), member, cJSON_GetObjectItemCaseSensitive(now, member->string), out);
  for (const cJSON* member = now->child; member != nullptr; member = member->next)
    if (cJSON_GetObjectItemCaseSensitive(then, member->string) == nullptr)
      out.push_back(describe(path_of(member), nullptr, member));
}

}  // namespace

std::vector<std::string> reply_differences(const std::string& then, const std::string& now) {
  std::vector<std::string> out;
  if (then == now) return out;
  const Json before(cJSON_Parse(then.c_str()));
  const Json after(cJSON_Parse(now.c_str()));
  if (before && after) {
    compare("", before.get(), after.get(), out);
    if (!out.empty() || cJSON_Compare(before.get(), after.get(), 1) != 0) return out;
    // They differ in a name that occurs twice.
  }
  out.push_back(format_text(translated("%s, now %s"), shortened(then, kColumns).c_str(),
                            shortened(now, kColumns).c_str()));
  return out;
}
