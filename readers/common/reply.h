#pragma once

#include <string>
#include <string_view>

#include "readers/common/failure.h"
#include "util/json/cjson_ptr.h"

/// What a reader library answers to one request.
struct Reply {
  bool success;
  std::string json;  ///< GBK, compact, with the terminating zero within QUORVEL_REPLY_SIZE bytes
};

/// The reply of success; a character that GBK lacks is written as a JSON escape. Throws Failure
/// (reply_too_long).
Reply success_reply(const std::string& function, Json data);
Reply failure_reply(const std::string& function, const Failure& failure);

/// The member "data" of a request: an object, an empty one when the request has none. With `names`,
/// each between blanks, its members may have no other. Throws Failure.
Json request_data(std::string_view command);
Json request_data(std::string_view command, std::string_view names);

/// The text member `name` of the request's data, or `otherwise`. Throws Failure.
std::string text_argument(const cJSON* data, const char* name, const std::string& otherwise = {});
