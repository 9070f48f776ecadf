#pragma once

#include <cstring>
#include <string>

#include "fuzz/input.h"
#include "util/json/cjson_ptr.h"
#include "util/text/conversion.h"
#include "util/text/hex.h"

/// The reply as the client gets it, whatever its bytes.
inline std::string client_text(const std::string& reply) {
  std::string utf8;
  library_text_to_utf8(GbkView(reply), utf8);
  return utf8;
}

/// Whether four digits follow every \u, which cJSON does not ask for.
inline bool has_whole_escapes(const std::string& json) {
  for (std::size_t at = json.find('\\'); at != std::string::npos; at = json.find('\\', at + 2))
    if (json[at + 1] == 'u' && json.find_first_not_of(kHexDigits, at + 2) < at + 6) return false;
  return true;
}

/// The document as a client's parser reads it, which unlike the service's takes no liberties.
inline Json read_strictly(const std::string& text) {
  return Json(has_whole_escapes(text) ? cJSON_ParseWithOpts(text.c_str(), nullptr, 1) : nullptr);
}

inline Json require_readable(const char* reply) {
  Json json = read_strictly(client_text(reply));
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

/// Whether two documents have the same shape and texts. Numbers may be printed otherwise.
inline bool same_texts(const cJSON* a, const cJSON* b) {
  for (; a != nullptr && b != nullptr; a = a->next, b = b->next) {
    const auto same = [](const char* left, const char* right) {
      return left == nullptr ? right == nullptr : right != nullptr && std::strcmp(left, right) == 0;
    };
    if ((a->type & 0xFF) != (b->type & 0xFF) || !same(a->string, b->string) ||
        (cJSON_IsString(a) && !same(a->valuestring, b->valuestring)) ||
        !same_texts(a->child, b->child))
      return false;
  }
  return a == b;
}
