#include "tools/libcheck/session.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "tools/libcheck/interrupt.h"
#include "tools/libcheck/line_reader.h"
#include "tools/libcheck/live_library.h"
#include "tools/libcheck/reply_difference.h"
#include "tools/libcheck/session_file.h"
#include "tools/libcheck/text.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"

namespace {

/// A call that takes this many times as long as another, and this much longer, is told.
constexpr double kLargeFactor = 2;
constexpr double kLargeDifferenceMs = 100;

std::string indented(const std::string& reply) {
  const Json json(cJSON_Parse(reply.c_str()));
  return json ? indented_json(json.get()) : reply;
}

void show(const RecordedCall& call, bool pretty, std::FILE* out) {
  std::fprintf(out, "%s\n", pretty ? indented(call.reply.text).c_str() : call.reply.text.c_str());
  std::fflush(out);
  std::fprintf(stderr, "  %.2f ms  %s%s\n", call.reply.milliseconds,
               readable_request(call.request.name).c_str(),
               call.reply.by_library
                   ? ""
                   : translated(": the library gave no reply, the service's own stands"));
}

/// A line of standard input: a request, or the name of a function. Throws std::invalid_argument.
Request read_line(const std::string& line) {
  if (!is_utf8(line)) throw std::invalid_argument(translated("it is not UTF-8, as pages send"));
  if (line.find('\0') != std::string::npos)
    throw std::invalid_argument(translated("it holds a zero byte"));
  return line[0] == '{' ? make_request(line) : default_request(line);
}

void print_notice(const std::string& file) {
  std::fprintf(
      stderr,
      translated(
          "%s gets what cards and requests say about people: names, numbers, addresses. "
          "Only you can\nread it (mode 0600). Take it along only if its people or their "
          "office agree, send it to nobody\nin the clear, and delete it when it has served.\n"),
      readable_request(file).c_str());
}

/// A session being recorded.
class Recording {
 public:
  Recording(const Arguments& given, std::FILE* output)
      : arguments(given),
        out(output),
        library(arguments.library, arguments.timeout),
        file(arguments.record, arguments.library) {}

  void call_line(const std::string& line) {
    try {
      call(read_line(line));
    } catch (const std::invalid_argument& problem) {
      std::fprintf(stderr, translated("not sent: %s\n"), problem.what());
      well = false;
    }
  }

  void call_lines() {
    const bool asks = isatty(STDIN_FILENO) == 1;
    if (asks)
      std::fputs(translated("A request or the name of a function a line; Ctrl-D ends.\n"), stderr);
    LineReader lines;
    for (;;) {
      if (asks) std::fputs("> ", stderr);
      const std::optional<std::string> line = lines.next();
      if (!line && asks) std::fputc('\n', stderr);
      if (!line) return;
      if (!line->empty()) call_line(*line);
    }
  }

  bool end() const {
    std::fprintf(stderr, translated("calls recorded in %s: %d\n"),
                 readable_request(arguments.record).c_str(), file.count());
    return well;
  }

 private:
  void call(const Request& request) {
    const RecordedCall call = {request, library.answer(request.page)};
    file.add(call);
    show(call, arguments.pretty, out);
    well = well && call.reply.by_library;
  }

  const Arguments& arguments;
  std::FILE* out;
  LiveLibrary library;
  SessionWriter file;
  bool well = true;
};

/// "slower" or "faster", or nothing worth telling.
const char* change_of_time(double then, double now) {
  const double shorter = std::min(then, now);
  const double longer = std::max(then, now);
  if (longer < kLargeFactor * shorter || longer - shorter < kLargeDifferenceMs) return nullptr;
  return now > then ? translated("slower") : translated("faster");
}

struct Counts {
  int same = 0;
  int different = 0;
  int other_time = 0;
};

void compare(const RecordedCall& then, const PageReply& now, std::FILE* out, Counts& counts) {
  const std::vector<std::string> differences = reply_differences(then.reply.text, now.text);
  const char* time = change_of_time(then.reply.milliseconds, now.milliseconds);
  std::fprintf(out, "  %-4s %10.2f ms  %s",
               differences.empty() ? translated("same") : translated("DIFF"), now.milliseconds,
               readable_request(then.request.name).c_str());
  if (time != nullptr)
    std::fprintf(out, translated("  (%s: %.2f ms then)"), time, then.reply.milliseconds);
  std::fputc('\n', out);
  for (const std::string& difference : differences)
    std::fprintf(out, "          %s\n", difference.c_str());
  if (!differences.empty())
    std::fprintf(out, translated("%srequest: %s\n"), "          ",
                 shortened(then.request.page, 110).c_str());
  std::fflush(out);
  ++(differences.empty() ? counts.same : counts.different);
  if (time != nullptr) ++counts.other_time;
}

}  // namespace

bool show_calls(const Arguments& arguments, std::FILE* out) {
  LiveLibrary library(arguments.library, arguments.timeout);
  bool well = true;
  for (const Request& request : arguments.calls) {
    const RecordedCall call = {request, library.answer(request.page)};
    show(call, arguments.pretty, out);
    well = well && call.reply.success;
  }
  return well;
}

bool record_session(const Arguments& arguments, std::FILE* out) {
  Recording recording(arguments, out);
  print_notice(arguments.record);
  try {
    for (const Request& request : arguments.calls) recording.call_line(request.page);
    if (arguments.calls.empty()) recording.call_lines();
  } catch (const Interrupted&) {
    std::fputs(translated("\ninterrupted: a call that was running is not in the session\n"),
               stderr);
  }
  return recording.end();
}

bool replay_session(const Arguments& arguments, std::FILE* out) {
  const std::vector<RecordedCall> calls = read_session(arguments.replay);
  LiveLibrary library(arguments.library, arguments.timeout);
  Counts counts;
  for (const RecordedCall& call : calls)
    compare(call, library.answer(call.request.page), out, counts);
  std::fprintf(out, translated("calls: %zu; same: %d, different: %d, of clearly other time: %d\n"),
               calls.size(), counts.same, counts.different, counts.other_time);
  return counts.different == 0;
}
