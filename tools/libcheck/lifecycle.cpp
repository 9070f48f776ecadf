#include "tools/libcheck/lifecycle.h"

#include <cstdlib>

#include "tools/libcheck/process_state.h"
#include "tools/libcheck/reader_library.h"
#include "tools/libcheck/resources.h"
#include "tools/libcheck/shared_memory.h"
#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

constexpr int kWarmUpRounds = 3;  // caches of the C library fill in the first rounds

void start(ReaderLibrary& library) {
  library.find_entry_points();
  library.getversion();
  library.init();
}

/// Sends the sample request over and over and watches that the answer stays a success or failure.
class SampleCall {
 public:
  explicit SampleCall(const Request& sample) : request(sample) {}

  void operator()(ReaderLibrary& library) {
    const bool success = library.scommand(request.name, request.command).returned != 0;
    if (rounds++ == 0) first_success = success;
    if (success != first_success)
      throw ContractBreak(
          format_text(translated("answers the same request differently in round %d"), rounds),
          translated("Look for state that uninit does not reset."));
  }

 private:
  const Request& request;
  bool first_success = false;
  int rounds = 0;
};

void measure_rounds(Growth& growth, int half, const std::function<void()>& round) {
  const auto repeat = [&](int times) {
    for (int i = 0; i < times; ++i) round();
    return measure_resources();
  };
  growth.before = repeat(kWarmUpRounds);
  growth.halfway = repeat(half);
  growth.after = repeat(half);
}

/// Runs `child`, which measures its rounds, and reports what they have left behind.
void check_growth(Subject& subject, const char* name, const char* calls, const char* cure,
                  const std::function<void(Growth&)>& child) {
  const Shared<Growth> growth;
  if (!subject.passes(name, [&] { child(*growth); })) return;
  const std::string left = describe_growth(*growth, subject.rounds / 2);
  if (left.empty())
    subject.report.add({Level::ok, name,
                        format_text(translated("%d rounds, nothing left behind"), subject.rounds)});
  else
    subject.report.add({Level::failure, name,
                        format_text(translated("%d rounds of %s leave behind %s"), subject.rounds,
                                    calls, left.c_str()),
                        cure});
}

std::string left_processes(std::size_t count) {
  return count == 1
             ? translated("leaves behind a process that it has started")
             : format_text(translated("leaves behind %zu processes that it has started"), count);
}
constexpr const char* kEndThem =
    translatable("End what it starts, in uninit at the latest, and wait for its end.");

/// What the library leaves running is put down to the call that started it.
void expect_no_process_left(std::size_t before_scommand, std::size_t after_scommand) {
  const std::size_t left = child_processes().size();
  if (left == 0) return;
  begin_call(after_scommand > before_scommand ? "scommand" : "init");
  throw ContractBreak(left_processes(left), translated(kEndThem));
}

/// One life of the library, in which every call has to leave the process as it was.
void live_through(const std::string& path, const Request& request) {
  setenv("LC_ALL", "C.UTF-8", 1);  // so that a change of the locale shows
  const ProcessState before;
  ReaderLibrary library(path);
  before.expect_unchanged();
  library.find_entry_points();
  library.getversion();
  before.expect_unchanged();
  library.init();
  before.expect_unchanged();
  const std::size_t before_scommand = child_processes().size();
  library.scommand(request.name, request.command);
  before.expect_unchanged();
  const std::size_t after_scommand = child_processes().size();
  library.uninit();
  before.expect_unchanged();
  library.unload();
  before.expect_unchanged();
  expect_no_process_left(before_scommand, after_scommand);
}

void check_process(Subject& subject, const std::vector<Request>& requests) {
  bool unchanged = true;
  for (const Request& request : requests) {
    ChildEnd end = subject.run([&] { live_through(subject.path, request); });
    if (end.finished && end.orphans > 0) {
      end.finished = false;
      end.call = translated("init or scommand");
      end.reason =
          left_processes(static_cast<std::size_t>(end.orphans)) + translated(" in the background");
      end.cure = translated(kEndThem);
    }
    if (end.finished) continue;
    unchanged = false;
    Finding finding = broken("process", end);
    const bool this_request = end.call.find("scommand") != std::string::npos;
    if (this_request) finding.request = readable_request(request.page);
    subject.report.add(finding);
    if (!this_request) return;  // the same for each
  }
  if (unchanged)
    subject.report.add({Level::ok, "process",
                        translated("directory, locale, umask, signals and environment unchanged")});
}

void check_end(Subject& subject, const Request& sample) {
  // Held past the end of the body, so that exit() finds the library loaded, as in the service.
  ReaderLibrary* library = nullptr;
  const bool ended = subject.passes(
      "end",
      [&] {
        library = new ReaderLibrary(subject.path);  // NOLINT: the end of the process releases it
        start(*library);
        library->scommand(sample.name, sample.command);
      },
      Leave::kThroughExit);
  if (ended) subject.report.add({Level::ok, "end", translated("the process ends without uninit")});
}

}  // namespace

void check_lifecycle(Subject& subject, const std::vector<Request>& answered) {
  const std::vector<Request> requests =
      answered.empty() ? std::vector<Request>{default_request("none")} : answered;
  const Request& sample = requests.front();
  subject.report.begin_group(translated("Lifecycle"));
  check_growth(subject, "calls", "scommand",
               translated("Give back in scommand what only this call needs."), [&](Growth& growth) {
                 ReaderLibrary library(subject.path);
                 start(library);
                 SampleCall call(sample);
                 measure_rounds(growth, subject.rounds / 2, [&] { call(library); });
                 library.uninit();
               });
  check_growth(subject, "init and uninit", translated("init, scommand and uninit"),
               translated("Give back in uninit what init and scommand acquire."),
               [&](Growth& growth) {
                 ReaderLibrary library(subject.path);
                 library.find_entry_points();
                 SampleCall call(sample);
                 measure_rounds(growth, subject.rounds / 2, [&] {
                   library.getversion();
                   library.init();
                   call(library);
                   library.uninit();
                 });
               });
  check_growth(subject, "load and unload", translated("loading and unloading"),
               translated("Give back in uninit or a destructor what was acquired."),
               [&](Growth& growth) {
                 SampleCall call(sample);
                 measure_rounds(growth, subject.rounds / 2, [&] {
                   ReaderLibrary library(subject.path);
                   start(library);
                   call(library);
                   library.uninit();
                   library.unload();
                 });
               });
  check_process(subject, requests);
  check_end(subject, sample);
  subject.report_output();
}
