#include "tools/libcheck/reply_rules.h"

#include <stdexcept>

#include "Services/dispatcher/json_reply.h"
#include "quorvel_reader.h"
#include "tools/libcheck/text.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/format.h"

namespace {

constexpr const char* kConvert =
    translatable("Convert texts to GBK, or compile with -fexec-charset=GBK.");

/// Ends the judgement: what comes after would be judged on sand.
struct Unusable {
  Finding problem;
};

[[noreturn]] void refuse(const std::string& text, const std::string& cure) {
  throw Unusable{{Level::failure, "", text, cure}};
}

std::string_view terminated(std::string_view buffer) {
  const std::size_t end = buffer.find('\0');
  if (end == std::string_view::npos)
    refuse(translated("the reply has no terminating zero within its 1024 bytes"),
           translated("Bound the reply to 1023 bytes and end it with a zero."));
  if (end == 0)
    refuse(translated("the reply is empty"),
           translated("Write a reply for every request, also for one you refuse."));
  return buffer.substr(0, end);
}

/// What the service makes of the reply, which has to be the reply's characters and no others.
std::string converted(std::string_view reply, Verdict& verdict) {
  std::string utf8;
  verdict.beyond_gbk = !library_text_to_utf8(GbkView(reply), utf8);
  if (!verdict.beyond_gbk) return utf8;
  if (looks_like_chinese_utf8(reply))
    refuse(translated("the reply is UTF-8, not GBK: the page would get other characters"),
           translated(kConvert));
  const std::size_t fault = utf8.find(kReplacementCharacter);
  if (fault == std::string::npos) return utf8;
  refuse(format_text(translated("the reply is not valid GBK (or GB18030) after \"%s\""),
                     shortened(std::string_view(utf8).substr(0, fault), 40).c_str()),
         translated("Convert texts to GBK and cut them only between characters."));
}

/// Whether a byte below 32 stands inside a string, which cJSON lets pass and browsers do not.
bool has_bare_control(const std::string& json) {
  bool inside = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (json[i] == '"') inside = !inside;
    if (inside && json[i] == '\\') ++i;
    if (inside && i < json.size() && static_cast<unsigned char>(json[i]) < 0x20) return true;
  }
  return false;
}

Json parsed(const std::string& utf8) {
  Json json(cJSON_ParseWithOpts(utf8.c_str(), nullptr, 1));
  if (!json || !cJSON_IsObject(json.get()))
    refuse(format_text(translated("the reply is not one JSON object: %s"),
                       shortened(utf8, 60).c_str()),
           translated(
               "Write one complete JSON object; escape quotation marks and backslashes in texts."));
  return json;
}

/// The reply as the service completes it: with "fid", unless it has that already. Of a name that is
/// not ASCII only the length matters here: its bytes are the page's fault, not the library's.
std::string completed(const std::string& reply, const std::string& function) {
  const std::string name = is_ascii(function) ? function : std::string(function.size(), 'x');
  return with_fid(Gbk(reply), Utf8View(name)).value_or(Gbk(reply)).bytes();
}

void judge_completion(const std::string& reply, const std::string& function, const cJSON* own,
                      Verdict& verdict) {
  const char* const write_fid = translated("Write the member \"fid\" into the reply.");
  const std::string complete = completed(reply, function);
  if (complete.size() >= QUORVEL_REPLY_SIZE) {
    verdict.problems.push_back({Level::warning, "",
                                translated("no room is left for the service to add \"fid\""),
                                write_fid});
    return;
  }
  library_text_to_utf8(GbkView(complete), verdict.page);
  const Json page(cJSON_ParseWithOpts(verdict.page.c_str(), nullptr, 1));
  if (complete != reply) cJSON_DeleteItemFromObjectCaseSensitive(page.get(), "fid");
  if (!page || cJSON_Compare(page.get(), own, 1) == 0)
    verdict.problems.push_back(
        {Level::failure, "",
         translated("the service changes the reply when it adds \"fid\": a number of "
                    "many digits, or a name that occurs twice"),
         write_fid});
}

void judge_members(const cJSON* reply, int returned, Verdict& verdict) {
  const char* result = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(reply, "result"));
  const std::string_view value = result != nullptr ? result : "";
  if (value != "true" && value != "false")
    refuse(translated("the reply has no member \"result\" that is the text \"true\" or \"false\""),
           translated("Write \"result\":\"true\" or \"result\":\"false\", with quotation marks."));
  verdict.success = value == "true";
  const char* errmsg = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(reply, "errmsg"));
  if (!verdict.success && (errmsg == nullptr || *errmsg == '\0'))
    verdict.problems.push_back({Level::warning, "",
                                translated("the failure reply has no \"errmsg\""),
                                translated("Tell people the reason and what to do.")});
  if (verdict.success != (returned != 0))
    verdict.problems.push_back(
        {Level::warning, "",
         format_text(translated("\"result\" is \"%s\" but scommand returned %d"), result, returned),
         translated("Return non-zero for success and 0 for failure.")});
}

}  // namespace

Verdict judge_reply(std::string_view buffer, int returned, const std::string& function) {
  Verdict verdict;
  try {
    const std::string reply(terminated(buffer));
    verdict.page = converted(reply, verdict);
    const Json json = parsed(verdict.page);
    judge_members(json.get(), returned, verdict);
    judge_completion(reply, function, json.get(), verdict);
    if (has_bare_control(verdict.page))
      refuse(translated("a text in the reply holds a control byte, which browsers refuse"),
             translated("Write control bytes as \\n, \\t or \\u00XX."));
    if (looks_like_chinese_utf8(reply))
      verdict.problems.push_back(
          {Level::warning, "",
           translated("the reply looks like UTF-8: the page would get garbled texts"),
           translated(kConvert)});
  } catch (const Unusable& unusable) {
    verdict.problems.push_back(unusable.problem);
  }
  return verdict;
}
