#include "readers/common/reply.h"

#include <cerrno>
#include <cstdio>

#include "quorvel_reader.h"
#include "util/text/conversion.h"
#include "util/text/converter.h"
#include "util/text/utf8.h"

namespace {

/// The character at the start of `utf8`, which is taken off, as JSON's escapes.
std::string escaped_character(std::string_view& utf8) {
  std::size_t length = 1;
  while (length < utf8.size() && is_utf8_tail(utf8[length])) ++length;
  std::string_view character = utf8.substr(0, length);
  utf8.remove_prefix(length);
  char units[4] = {};  // UTF-16, big endian
  char* out = units;
  std::size_t room = sizeof units;
  Converter converter("utf-16be", "utf-8");
  if (!converter.valid() || converter.convert(character, out, room) != 0) return "?";
  std::string escapes;
  for (const char* unit = units; unit < out; unit += 2) {
    char escape[sizeof "\\uFFFF"];
    std::snprintf(escape, sizeof escape, "\\u%02x%02x", static_cast<unsigned char>(unit[0]),
                  static_cast<unsigned char>(unit[1]));
    escapes += escape;
  }
  return escapes;
}

/// A JSON text in GBK, without loss: names with letters that GBK lacks are no rarity on cards.
std::string json_to_gbk(std::string_view utf8) {
  Converter converter(kGbkCharset, "utf-8");
  std::string json;
  while (converter.valid() && !utf8.empty()) {
    std::string part(utf8.size(), '\0');  // no character takes more bytes in GBK than in UTF-8
    char* out = part.data();
    std::size_t room = part.size();
    const bool whole = converter.convert(utf8, out, room) == 0;
    json.append(part, 0, part.size() - room);
    if (!whole) json += escaped_character(utf8);
  }
  return json;
}

Json envelope(const char* result, const std::string& function) {
  Json reply = new_object();
  add_text(reply.get(), "result", result);
  add_text(reply.get(), "fid", function);  // so that the service passes the reply on as it is
  return reply;
}

}  // namespace

Reply success_reply(const std::string& function, Json data) {
  const Json reply = envelope("true", function);
  cJSON_AddItemToObject(reply.get(), "data", data.release());
  std::string json = json_to_gbk(compact_json(reply.get()));
  if (json.size() >= QUORVEL_REPLY_SIZE) throw Failure(failures::kReplyTooLong);
  return {true, json};
}

Reply failure_reply(const std::string& function, const Failure& failure) {
  const Json reply = envelope("false", function);
  add_text(reply.get(), "errcode", failure.errcode());
  add_text(reply.get(), "errmsg", failure.what());
  std::string json = json_to_gbk(compact_json(reply.get()));
  // A name of control bytes grows sixfold, here and as the detail of the failure.
  if (json.size() >= QUORVEL_REPLY_SIZE && !function.empty()) return failure_reply("", failure);
  return {false, json};
}

Json request_data(std::string_view command) {
  const Json request(cJSON_ParseWithLength(command.data(), command.size()));
  Json data(cJSON_DetachItemFromObjectCaseSensitive(request.get(), "data"));
  if (!data) return new_object();
  if (!cJSON_IsObject(data.get())) throw Failure(failures::kBadValue, "data");
  return data;
}

Json request_data(std::string_view command, std::string_view names) {
  Json data = request_data(command);
  for (const cJSON* member = data->child; member != nullptr; member = member->next)
    if (names.find(std::string(" ") + member->string + " ") == std::string::npos)
      throw Failure(failures::kUnknownMember, member->string);
  return data;
}

std::string text_argument(const cJSON* data, const char* name, const std::string& otherwise) {
  const cJSON* member = cJSON_GetObjectItemCaseSensitive(data, name);
  if (member == nullptr) return otherwise;
  if (!cJSON_IsString(member)) throw Failure(failures::kBadValue, name);
  return member->valuestring;
}
