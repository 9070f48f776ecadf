#pragma once

#include <cjson/cJSON.h>

#include <cstring>
#include <memory>
#include <string>

#include "fuzz/input.h"
#include "util/json_object.h"
#include "util/text_conversion.h"

using Json = std::unique_ptr<cJSON, CjsonDeleter>;

/// The GBK text in UTF-8; empty when it can't be converted to its end.
inline std::string utf8_of(const std::string& gbk) {
  std::string utf8;
  return gbk_to_utf8(gbk, utf8) ? utf8 : "";
}

/// Whether four digits follow every \u, which cJSON does not ask for.
inline bool has_whole_escapes(const std::string& json) {
  for (std::size_t at = json.find('\\'); at != std::string::npos; at = json.find('\\', at + 2))
    if (json[at + 1] == 'u' && json.find_first_not_of("0123456789abcdefABCDEF", at + 2) < at + 6)
      return false;
  return true;
}

/// The document as a client's parser reads it, which unlike the service's takes no liberties.
inline Json read_strictly(const std::string& text) {
  return Json(has_whole_escapes(text) ? cJSON_ParseWithOpts(text.c_str(), nullptr, 1) : nullptr);
}

inline Json require_readable(const char* reply) {
  Json json = read_strictly(utf8_of(reply));
  require(json != nullptr, "the reply is JSON in UTF-8 to the client");
  return json;
}

/// For a reply that the service itself gives. Whether it tells success.
inline bool require_envelope(const char* reply) {
  const Json json = require_readable(reply);
  const char* result = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(json.get(), "result"));
  require(result != nullptr, "the reply has a result");
  const bool success = std::strcmp(result, "true") == 0;
  require(success || cJSON_HasObjectItem(json.get(), "errmsg"), "a failure has a reason");
  return success;
}
