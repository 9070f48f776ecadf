#include "tools/libcheck/request.h"

#include <sys/utsname.h>

#include <functional>
#include <stdexcept>

#include "Services/dispatcher/command.h"
#include "Services/dispatcher/dispatcher.h"
#include "server/answer.h"
#include "util/json/cjson_ptr.h"
#include "util/json/json_object.h"
#include "util/language/language.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/format.h"

namespace {

constexpr char kData[] = "data";

void set_data(cJSON* request, cJSON* value) {
  cJSON_DeleteItemFromObject(request, kData);
  cJSON_AddItemToObject(request, kData, value);
}

/// Replaces the value of every argument; a request without arguments gets one.
void set_arguments(cJSON* request, const Json& value) {
  const cJSON* data = cJSON_GetObjectItem(request, kData);
  cJSON* changed = cJSON_CreateObject();
  if (!cJSON_IsObject(data) || data->child == nullptr)
    cJSON_AddItemToObject(changed, "argument", cJSON_Duplicate(value.get(), 1));
  else
    for (const cJSON* member = data->child; member != nullptr; member = member->next)
      cJSON_AddItemToObject(changed, member->string, cJSON_Duplicate(value.get(), 1));
  set_data(request, changed);
}

Json text(const std::string& bytes) { return Json(cJSON_CreateString(bytes.c_str())); }
Json json(const std::string& source) { return Json(cJSON_Parse(source.c_str())); }

std::string nested(int depth) {
  return std::string(static_cast<std::size_t>(depth), '[') +
         std::string(static_cast<std::size_t>(depth), ']');
}

struct Oddity {
  const char* label;
  std::function<void(cJSON*)> apply;
};

const std::vector<Oddity>& oddities() {
  static const std::vector<Oddity> table = {
      {translatable("no data"), [](cJSON* r) { cJSON_DeleteItemFromObject(r, kData); }},
      {translatable("data null"), [](cJSON* r) { set_data(r, cJSON_CreateNull()); }},
      {translatable("data a text"), [](cJSON* r) { set_data(r, cJSON_CreateString("text")); }},
      {translatable("data nested 900 deep"),
       [](cJSON* r) { set_data(r, json(nested(900)).release()); }},
      {translatable("arguments null"), [](cJSON* r) { set_arguments(r, json("null")); }},
      {translatable("arguments -1"), [](cJSON* r) { set_arguments(r, json("-1")); }},
      {translatable("arguments 1e300"), [](cJSON* r) { set_arguments(r, json("1e300")); }},
      {translatable("arguments lists"), [](cJSON* r) { set_arguments(r, json("[{},[null]]")); }},
      {translatable("arguments empty"), [](cJSON* r) { set_arguments(r, text("")); }},
      {translatable("arguments 5000 bytes long"),
       [](cJSON* r) { set_arguments(r, text(std::string(5000, 'x'))); }},
      {translatable("arguments not UTF-8"),
       [](cJSON* r) { set_arguments(r, text("\xFF\xFE\x81\xC3 \x80")); }},
      {translatable("arguments full of specials"),
       [](cJSON* r) { set_arguments(r, text("\"\\\x01\n%s%n%n../;'\x7F")); }},
  };
  return table;
}

/// `page` with one more member that makes its command text as long as one can be.
std::string longest_request(const std::string& page) {
  const Json request = json(page);
  cJSON_AddStringToObject(request.get(), "padding", "");
  const std::size_t used = make_request(compact_json(request.get())).command.size();
  const std::string padding(kLongestRequest - used, 'x');
  cJSON_ReplaceItemInObject(request.get(), "padding", text(padding).release());
  return compact_json(request.get());
}

Request request_for(const std::string& function, const std::string& label) {
  const Json page = new_object();
  add_text(page.get(), "fid", function);
  return make_request(compact_json(page.get()), label);
}

}  // namespace

std::string architecture() {
  utsname system = {};
  return uname(&system) == 0 ? system.machine : "none";
}

Request make_request(const std::string& page, const std::string& label) {
  neb::CJsonObject document{std::string_view(page)};
  std::string function;
  if (page.size() > kLongestRequest)
    throw std::invalid_argument(format_text(translated("the service takes at most %zu bytes"),
                                            std::size_t{kLongestRequest}));
  const GbkView refusal = make_command(document, architecture().c_str(), function);
  if (!refusal.empty())
    throw std::invalid_argument(
        format_text(translated("the service refuses it: %s"), shown(refusal).c_str()));
  if (Jdispatcher::is_own_function(function))
    throw std::invalid_argument(translated("the service answers this function itself"));
  return {label, page, ascii_lower(function), document.ToString()};
}

Request default_request(const std::string& function) {
  if (function == kCannedName) return make_request(std::string(kCannedRequest));
  return request_for(function, "");
}

std::vector<Request> odd_requests(const std::string& page) {
  // Printed again by the service's own document, so that the stricter parser takes it as well.
  const std::string canonical = neb::CJsonObject(std::string_view(page)).ToString();
  std::vector<Request> requests;
  const auto add = [&](const std::string& changed, const char* label) {
    try {
      requests.push_back(make_request(changed, label));
    } catch (const std::invalid_argument&) {
      // Does not fit any more, so no library will meet it.
    }
  };
  for (const Oddity& oddity : oddities()) {
    const Json changed = json(canonical);
    oddity.apply(changed.get());
    add(compact_json(changed.get()), translated(oddity.label));
  }
  add(longest_request(canonical), translated("as long as a request can be"));
  return requests;
}

std::vector<Request> unknown_functions(const std::string& declared) {
  std::vector<Request> requests = {
      request_for("no.such.function", translated("an unknown name")),
      request_for(std::string(kLongestName, 'a'), translated("as long as a name can be")),
      request_for("\xD7\xD6\xFF", translated("a name that is not ASCII")),
      request_for("%s%n", translated("printf directives"))};
  if (declared.size() > 1)
    requests.push_back(
        request_for(declared.substr(0, declared.size() - 1), translated("a part of a name")));
  return requests;
}
