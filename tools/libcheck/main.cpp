// Checks a reader library against the contract of quorvel_reader.h.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <functional>
#include <system_error>

#include "tools/libcheck/advice.h"
#include "tools/libcheck/arguments.h"
#include "tools/libcheck/calls.h"
#include "tools/libcheck/interrupt.h"
#include "tools/libcheck/lifecycle.h"
#include "tools/libcheck/live_library.h"
#include "tools/libcheck/loading.h"
#include "tools/libcheck/resources.h"
#include "tools/libcheck/session.h"
#include "tools/libcheck/text.h"
#include "tools/libcheck/watch.h"
#include "util/handle/unique_file.h"
#include "util/language/language.h"

namespace {

// Scripts branch on these numbers: never renumber them.
enum ExitStatus { kKept = 0, kBrokenContract = 1, kCannotCheck = 2 };

std::vector<Request> default_requests(const FunctionList& list) {
  std::vector<Request> requests;
  for (const std::string& name : list.names) {
    try {
      requests.push_back(default_request(name));
    } catch (const std::invalid_argument&) {
      // No request can ask for this name; the function list's check has said why.
    }
  }
  return requests;
}

ExitStatus check(const Arguments& arguments, Report& report, FunctionList& list) {
  Subject subject(arguments.library, arguments.timeout, arguments.rounds, report);
  const Loaded loaded = check_loading(subject, list);
  if (loaded == Loaded::kRefused) return kCannotCheck;
  if (loaded == Loaded::kBroken) return kBrokenContract;
  check_overlaps(subject, list, arguments.others);
  const std::vector<Request> requests =
      arguments.requests.empty() ? default_requests(list) : arguments.requests;
  const std::vector<Request> answered = check_requests(subject, requests);
  check_odd_requests(subject, requests, answered);
  check_lifecycle(subject, answered);
  advise_isolation(report);
  return report.count(Level::failure) > 0 ? kBrokenContract : kKept;
}

ExitStatus check(const Arguments& arguments) {
  FunctionList list;
  if (arguments.json) {
    Report report;
    const ExitStatus status = check(arguments, report, list);
    std::puts(json_report(report, arguments.library, list.names, status).c_str());
    return status;
  }
  ConsoleReport report;
  const ExitStatus status = check(arguments, report, list);
  if (status != kCannotCheck) report.print_summary();
  return status;
}

/// Standard output for this program alone: what a library prints there goes to standard error, so
/// that no reply is mixed with it.
UniqueFile take_standard_output() {
  UniqueFile own(fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w"));
  if (!own) throw std::system_error(errno, std::generic_category(), "standard output");
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return own;
}

/// What the arguments choose in place of the check; null when they choose the check.
bool (*chosen_session(const Arguments& arguments))(const Arguments&, std::FILE*) {
  if (!arguments.replay.empty()) return replay_session;
  if (!arguments.record.empty()) return record_session;
  return arguments.calls.empty() ? nullptr : show_calls;
}

ExitStatus explained(const Arguments& arguments, const std::function<ExitStatus()>& run) {
  try {
    return run();
  } catch (const CannotLoad& problem) {
    std::fprintf(stderr,
                 translated("quorvel-libcheck: %s\nFor the cause, run: quorvel-libcheck %s\n"),
                 problem.what(), readable_request(arguments.library).c_str());
  } catch (const Interrupted&) {
    throw;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "quorvel-libcheck: %s\n", problem.what());
  }
  return kCannotCheck;
}

int run(const Arguments& arguments) {
  std::function<ExitStatus()> work = [&] { return check(arguments); };
  UniqueFile out;
  if (const auto session = chosen_session(arguments)) {
    out = take_standard_output();
    work = [&, session] { return session(arguments, out.get()) ? kKept : kBrokenContract; };
  }
  const auto once = [&] { return explained(arguments, work); };
  return arguments.watch ? watch(arguments.library, once) : once();
}

}  // namespace

int main(int argc, char** argv) {
  restart_without_malloc_cache(argv);
  use_language_in_locale_c();
  try {
    const Arguments arguments = parse_arguments(argc, argv);
    if (arguments.help) {
      std::fputs(translated(kUsage), stdout);
      return kKept;
    }
    if (arguments.json) use_english();
    take_interrupts();
    return run(arguments);
  } catch (const UsageError& problem) {
    if (*problem.what() != '\0') std::fprintf(stderr, "quorvel-libcheck: %s\n", problem.what());
    std::fputs(translated("Try quorvel-libcheck --help.\n"), stderr);
  } catch (const Interrupted& interrupted) {
    end_by_signal(interrupted.number());
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "quorvel-libcheck: %s\n", problem.what());
  }
  return kCannotCheck;
}
