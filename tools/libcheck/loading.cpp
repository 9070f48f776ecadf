#include "tools/libcheck/loading.h"

#include <cstring>
#include <memory>

#include "libs/funlib.h"
#include "libs/listing.h"
#include "tools/libcheck/reader_library.h"
#include "tools/libcheck/shared_memory.h"
#include "tools/libcheck/text.h"

namespace {

/// What the child that loads the library leaves behind, step by step.
struct Steps {
  bool refused;  // by the dynamic loader
  bool loaded;
  double load_milliseconds;
  bool entered;
  bool answered;
  VersionRecord version;
  bool ready;
  double init_milliseconds;
};

void check_file(Subject& subject) {
  Finding finding = {Level::ok, "file", readable(subject.path)};
  const std::string file = subject.path.substr(subject.path.rfind('/') + 1);
  if (!names_library(file))
    finding = {Level::failure, "file", "the service skips a file without \"so\" in its name",
               "Give it a name such as libreader.so."};
  else if (subject.path.size() > kLongestLibraryPath)
    finding = {Level::warning, "file",
               "its path has " + std::to_string(subject.path.size()) +
                   " bytes, the service takes at most " + std::to_string(kLongestLibraryPath),
               "Install it beside the program or under a shorter path."};
  subject.report.add(finding);
}

std::unique_ptr<ReaderLibrary> load(const std::string& path, Steps& steps) {
  try {
    return std::make_unique<ReaderLibrary>(path);
  } catch (const ContractBreak&) {
    steps.refused = true;
    throw;
  }
}

void go_through(const std::string& path, Steps& steps) {
  const std::unique_ptr<ReaderLibrary> opened = load(path, steps);
  ReaderLibrary& library = *opened;
  steps.load_milliseconds = library.load_milliseconds();
  steps.loaded = true;
  library.find_entry_points();
  steps.entered = true;
  steps.version = library.getversion();
  steps.answered = true;
  if (steps.version.returned == 0) return;
  steps.init_milliseconds = library.init();
  steps.ready = true;
  library.uninit();
  library.unload();
}

std::string_view answer_of(const VersionRecord& version) {
  return {version.answer, strnlen(version.answer, sizeof version.answer)};
}

/// True when the answer is one that the service can use at all.
bool report_version(Subject& subject, const VersionRecord& version) {
  const char* name = "getversion";
  if (version.returned == 0) {
    const std::string_view error(version.error, strnlen(version.error, sizeof version.error));
    subject.report.add({Level::failure, name,
                        "it returned 0, which refuses loading: " + readable(error),
                        "Return non-zero; report hardware that is missing from scommand."});
    return false;
  }
  if (answer_of(version).size() == sizeof version.answer) {
    subject.report.add({Level::failure, name,
                        "the answer has no terminating zero within its 1024 bytes",
                        "Bound the list to 511 bytes: 1022 digits and a zero."});
    return false;
  }
  subject.report.add({Level::ok, name,
                      std::to_string(answer_of(version).size()) + " hexadecimal digits", "",
                      version.milliseconds});
  return true;
}

void report_list(Subject& subject, std::string_view answer, const FunctionList& list) {
  std::string names;
  for (const std::string& name : list.names) names += (names.empty() ? "" : ", ") + readable(name);
  const std::vector<Finding> problems = judge_function_list(answer, list);
  if (!list.names.empty()) subject.report.add({Level::ok, "function list", names});
  for (const Finding& problem : problems) subject.report.add(problem);
}

/// The step by step checks agree with the service's own loader unless this library behaves
/// differently with ordinary buffers.
void check_with_service(Subject& subject, const FunctionList& list) {
  struct Outcome {
    bool initialised;
    char text[kReplySize];
    char functions[kFunctionListSize];
  };
  const Shared<Outcome> outcome;
  const bool finished = subject.passes("service", [&] {
    begin_call("the service's own loader");
    Funlib binding(subject.path.c_str());
    outcome->initialised = binding.init(outcome->text, sizeof outcome->text);
    copy_text(outcome->functions, binding.functions());
  });
  if (!finished) return;
  if (!outcome->initialised || list.text != outcome->functions)
    subject.report.add({Level::failure, "service",
                        "the service's own loader gets another result: " + readable(outcome->text),
                        "Look for what depends on the content or place of the buffers."});
  else
    subject.report.add({Level::ok, "service", "the service's own loader accepts the library"});
}

}  // namespace

Loaded check_loading(Subject& subject, FunctionList& list) {
  subject.report.begin_group("Loading");
  check_file(subject);
  const Shared<Steps> steps;
  const ChildEnd end = subject.run([&] { go_through(subject.path, *steps); });
  if (steps->entered)
    subject.report.add({Level::ok, "entry points", "init, uninit, scommand, getversion", "",
                        steps->load_milliseconds});
  if (steps->answered) {
    if (!report_version(subject, steps->version)) return Loaded::kBroken;
    list = make_function_list(subject.path, answer_of(steps->version));
    report_list(subject, answer_of(steps->version), list);
  }
  if (steps->ready) subject.report.add({Level::ok, "init", "ready", "", steps->init_milliseconds});
  if (!end.finished) {
    subject.report.add(broken(steps->loaded ? end.call : "loading", end));
    return steps->refused ? Loaded::kRefused : Loaded::kBroken;
  }
  check_with_service(subject, list);
  return Loaded::kReady;
}

void check_overlaps(Subject& subject, const FunctionList& list,
                    const std::vector<std::string>& others) {
  if (others.empty()) return;
  subject.report.begin_group("Other libraries");
  for (const std::string& path : others) {
    const Shared<VersionRecord> version;
    const bool finished = subject.passes(path, [&] {
      ReaderLibrary library(path);
      library.find_entry_points();
      *version = library.getversion();
    });
    if (!finished) continue;
    const FunctionList other = make_function_list(path, answer_of(*version));
    const std::vector<Finding> overlaps = judge_overlap(list, other);
    for (const Finding& overlap : overlaps) subject.report.add(overlap);
    if (overlaps.empty()) subject.report.add({Level::ok, "overlap", "none with " + readable(path)});
  }
}
