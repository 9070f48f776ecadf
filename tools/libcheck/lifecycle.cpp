#include "tools/libcheck/lifecycle.h"

#include <signal.h>
#include <sys/stat.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "tools/libcheck/reader_library.h"
#include "tools/libcheck/resources.h"
#include "tools/libcheck/shared_memory.h"

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
      throw ContractBreak("answers the same request differently in round " + std::to_string(rounds),
                          "Look for state that uninit does not reset.");
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
void check_growth(Subject& subject, const char* name, const char* cure,
                  const std::function<void(Growth&)>& child) {
  const Shared<Growth> growth;
  if (!subject.passes(name, [&] { child(*growth); })) return;
  const std::string left = describe_growth(*growth, subject.rounds / 2);
  const std::string rounds = std::to_string(subject.rounds) + " rounds";
  if (left.empty())
    subject.report.add({Level::ok, name, rounds + ", nothing left behind"});
  else
    subject.report.add({Level::failure, name, rounds + " leave behind " + left, cure});
}

/// What of the process belongs to the service.
struct ProcessState {
  std::string directory;
  std::string locale;
  mode_t mask;
  void (*on_interrupt)(int);
  void (*on_child)(int);
  void (*on_pipe)(int);
};

void (*handler_of(int signal_number))(int) {
  struct sigaction action = {};
  sigaction(signal_number, nullptr, &action);
  return action.sa_handler;
}

ProcessState process_state() {
  const mode_t mask = umask(0);
  umask(mask);
  return {std::filesystem::current_path(),
          std::setlocale(LC_ALL, nullptr),
          mask,
          handler_of(SIGINT),
          handler_of(SIGCHLD),
          handler_of(SIGPIPE)};
}

void expect_unchanged(const ProcessState& before) {
  const ProcessState after = process_state();
  std::string changed;
  if (before.directory != after.directory) changed += " working directory";
  if (before.locale != after.locale) changed += " locale";
  if (before.mask != after.mask) changed += " umask";
  if (before.on_interrupt != after.on_interrupt) changed += " SIGINT";
  if (before.on_child != after.on_child) changed += " SIGCHLD";
  if (before.on_pipe != after.on_pipe) changed += " SIGPIPE";
  if (changed.empty()) return;
  begin_call("the library");
  throw ContractBreak("changes what belongs to the service:" + changed,
                      "Leave the process as it is; a driver underneath may be what changes it.");
}

void check_process(Subject& subject, const Request& sample) {
  const bool unchanged = subject.passes("process", [&] {
    setenv("LC_ALL", "C.UTF-8", 1);  // so that a change of the locale shows
    const ProcessState before = process_state();
    ReaderLibrary library(subject.path);
    start(library);
    library.scommand(sample.name, sample.command);
    expect_unchanged(before);
    library.uninit();
  });
  if (unchanged)
    subject.report.add({Level::ok, "process", "directory, locale, umask and signals unchanged"});
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
  if (ended) subject.report.add({Level::ok, "end", "the process ends without uninit"});
}

}  // namespace

void check_lifecycle(Subject& subject, const Request& sample) {
  subject.report.begin_group("Lifecycle");
  check_growth(subject, "calls", "Give back in scommand what only this call needs.",
               [&](Growth& growth) {
                 ReaderLibrary library(subject.path);
                 start(library);
                 SampleCall call(sample);
                 measure_rounds(growth, subject.rounds / 2, [&] { call(library); });
                 library.uninit();
               });
  check_growth(subject, "init and uninit", "Give back in uninit what init and scommand acquire.",
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
  check_growth(subject, "load and unload", "Give back in uninit or a destructor what was acquired.",
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
  check_process(subject, sample);
  check_end(subject, sample);
  subject.report_output();
}
