#include "tools/libcheck/live_library.h"

#include "tools/libcheck/interrupt.h"
#include "tools/libcheck/request.h"
#include "util/json/cjson_ptr.h"
#include "util/log/log.h"

namespace {

std::string member_text(const std::string& reply, const char* name) {
  const Json json(cJSON_Parse(reply.c_str()));
  const char* text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(json.get(), name));
  return text != nullptr ? text : "";
}

void show_faults_only() {
  set_log_charset_utf8(true);
  set_log_levels(static_cast<unsigned>(LogLevel::kError) |
                 static_cast<unsigned>(LogLevel::kWarning));
}

}  // namespace

LiveLibrary::LiveLibrary(const std::string& path, std::chrono::milliseconds limit)
    : platform(architecture()), answers(registry, {access, platform.c_str()}) {
  show_faults_only();
  registry.set_late_reply_handler([this](Ticket ticket, const LateReply& late) {
    if (!waits) return;
    waits = false;
    by_library = late.kind != LateReply::Kind::kFailure;
    answers.answer_later(ticket, late, reply);
  });
  char reason[kErrorTextSize] = {};
  const InterruptsAtOnce while_it_loads;
  if (registry.add_isolated(path.c_str(), std::chrono::ceil<std::chrono::seconds>(limit), reason))
    return;
  throw CannotLoad(member_text(shown(GbkView(reason)).bytes(), "errmsg"));
}

LiveLibrary::~LiveLibrary() { registry.end_isolated(); }

PageReply LiveLibrary::answer(const std::string& page) {
  const auto start = std::chrono::steady_clock::now();
  by_library = false;
  waits = answers.answer(page, nullptr, nullptr, reply) == 0;
  while (waits) {
    wait_readable(registry.event_descriptor(), std::chrono::milliseconds(-1));
    registry.handle_events();
  }
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
  const std::string text = reply;
  return {text, member_text(text, "result") == "true", by_library, time.count()};
}
