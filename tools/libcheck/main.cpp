// Checks a reader library against the contract of quorvel_reader.h.

#include <cstdio>
#include <exception>

#include "tools/libcheck/advice.h"
#include "tools/libcheck/arguments.h"
#include "tools/libcheck/calls.h"
#include "tools/libcheck/interrupt.h"
#include "tools/libcheck/lifecycle.h"
#include "tools/libcheck/loading.h"
#include "tools/libcheck/resources.h"
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

int run(const Arguments& arguments) {
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
