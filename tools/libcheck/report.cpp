#include "tools/libcheck/report.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tools/libcheck/text.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

constexpr std::size_t kTextColumns = 110;

struct Style {
  const char* word;    // for people
  const char* colour;  // escape sequence of terminals
  const char* json;
};

const Style& style_of(Level level) {
  static constexpr Style kStyles[] = {{translatable("ok"), "\033[32m", "ok"},
                                      {translatable("warn"), "\033[33m", "warning"},
                                      {translatable("FAIL"), "\033[1;31m", "failure"}};
  return kStyles[static_cast<std::size_t>(level)];
}

void add_given(cJSON* object, const char* name, const std::string& text) {
  if (!text.empty()) add_text(object, name, text);
}

cJSON* json_finding(const Finding& finding) {
  cJSON* object = new_object().release();
  add_given(object, "group", finding.group);
  add_given(object, "name", finding.name);
  add_given(object, "level", style_of(finding.level).json);
  add_given(object, "text", finding.text);
  add_given(object, "cure", finding.cure);
  if (finding.milliseconds >= 0) cJSON_AddNumberToObject(object, "ms", finding.milliseconds);
  add_given(object, "request", finding.request);
  add_given(object, "reply", finding.reply);
  return object;
}

}  // namespace

void Report::add(Finding finding) {
  finding.group = group;
  findings.push_back(std::move(finding));
  show(findings.back());
}

int Report::count(Level level) const {
  return static_cast<int>(std::count_if(findings.begin(), findings.end(),
                                        [&](const Finding& f) { return f.level == level; }));
}

ConsoleReport::ConsoleReport()
    : colours(isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr) {}

void ConsoleReport::show(const Finding& finding) {
  if (finding.group != shown_group)
    std::printf("%s%s\n", shown_group.empty() ? "" : "\n", finding.group.c_str());
  shown_group = finding.group;
  const Style& style = style_of(finding.level);
  char time[24] = "";
  if (finding.milliseconds >= 0) std::snprintf(time, sizeof time, "%.2f ms", finding.milliseconds);
  std::printf(
      "  %s%-4s%s %10s  %-18s %s\n", colours ? style.colour : "", translated(style.word),
      colours ? "\033[0m" : "", time, finding.name.c_str(),
      (finding.level == Level::ok ? shortened(finding.text, kTextColumns) : finding.text).c_str());
  constexpr char kBelow[] = "                    ";
  if (finding.level != Level::ok && !finding.request.empty())
    std::printf(translated("%srequest: %s\n"), kBelow,
                shortened(finding.request, kTextColumns).c_str());
  if (finding.level != Level::ok && !finding.reply.empty())
    std::printf(translated("%sreply: %s\n"), kBelow,
                shortened(finding.reply, kTextColumns).c_str());
  if (!finding.cure.empty()) std::printf(translated("%scure: %s\n"), kBelow, finding.cure.c_str());
  std::fflush(stdout);
}

void ConsoleReport::print_summary() const {
  const int failures = count(Level::failure);
  const char* verdict = failures > 0 ? translated("The library breaks the contract.")
                                     : translated("The library keeps the contract.");
  const int warnings = count(Level::warning);
  const auto checks = static_cast<int>(all().size());
  std::printf(
      translated("\n%s %s: %d ok, %s, %s.\n"), verdict,
      format_text(checks == 1 ? translated("%d check") : translated("%d checks"), checks).c_str(),
      count(Level::ok),
      format_text(warnings == 1 ? translated("%d warning") : translated("%d warnings"), warnings)
          .c_str(),
      format_text(failures == 1 ? translated("%d failure") : translated("%d failures"), failures)
          .c_str());
}

std::string json_report(const Report& report, const std::string& library,
                        const std::vector<std::string>& functions, int exit_status) {
  const Json root = new_object();
  add_text(root.get(), "library", library);
  cJSON* names = cJSON_AddArrayToObject(root.get(), "functions");
  for (const std::string& name : functions)
    cJSON_AddItemToArray(names, cJSON_CreateString(name.c_str()));
  cJSON* checks = cJSON_AddArrayToObject(root.get(), "checks");
  for (const Finding& finding : report.all()) cJSON_AddItemToArray(checks, json_finding(finding));
  cJSON_AddNumberToObject(root.get(), "ok", report.count(Level::ok));
  cJSON_AddNumberToObject(root.get(), "warnings", report.count(Level::warning));
  cJSON_AddNumberToObject(root.get(), "failures", report.count(Level::failure));
  cJSON_AddNumberToObject(root.get(), "status", exit_status);
  return indented_json(root.get());
}
