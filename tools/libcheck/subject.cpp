#include "tools/libcheck/subject.h"

#include <algorithm>

#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

std::string one_line(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return readable(text);
}

}  // namespace

Finding broken(const std::string& name, const ChildEnd& end) {
  const std::string reason = readable_request(end.reason);
  std::string text = end.call + " " + shortened(reason, reason.size());
  if (!end.printed.empty())
    text += format_text(translated("; it printed: %s"), one_line(end.printed).c_str());
  return {Level::failure, name, text, end.cure};
}

ChildEnd Subject::run(const std::function<void()>& body, Leave leave) {
  ChildEnd end = run_in_child(limit, body, leave);
  if (end.finished && printed.empty()) {
    printed = end.printed;
    printed_by = end.call;
  }
  return end;
}

bool Subject::passes(const std::string& name, const std::function<void()>& body, Leave leave) {
  const ChildEnd end = run(body, leave);
  if (!end.finished) report.add(broken(name, end));
  return end.finished;
}

void Subject::report_output() {
  if (printed.empty())
    report.add(
        {Level::ok, "output", translated("nothing printed on the service's standard streams")});
  else
    report.add({Level::warning, "output",
                format_text(translated("it prints on the service's standard streams, up to %s: %s"),
                            printed_by.c_str(), one_line(printed).c_str()),
                translated("Log to syslog or to a file of the library's own.")});
}
