#include "tools/libcheck/loading.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>

#include "libs/funlib.h"
#include "libs/listing.h"
#include "tools/libcheck/reader_library.h"
#include "tools/libcheck/service_view.h"
#include "tools/libcheck/shared_memory.h"
#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

/// What the child that loads the library leaves behind, step by step.
struct Steps {
  bool refused;  // by the dynamic loader
  bool loaded;
  double load_milliseconds;
  char needed[512];    // a file that it is linked with and that the service can't open; empty: none
  char obstacle[512];  // why not
  bool entered;
  bool answered;
  VersionRecord version;
  bool ready;
  double init_milliseconds;
};

void check_file(Subject& subject) {
  Finding finding = {Level::ok, "file", readable_request(subject.path)};
  const std::string file = subject.path.substr(subject.path.rfind('/') + 1);
  if (!names_library(file))
    finding = {Level::failure, "file",
               translated("the service skips a file without \"so\" in its name"),
               translated("Give it a name such as libreader.so.")};
  else if (subject.path.size() > kLongestLibraryPath)
    finding = {Level::warning, "file",
               format_text(translated("its path has %zu bytes, the service takes at most %zu"),
                           subject.path.size(), std::size_t{kLongestLibraryPath}),
               translated("Install it beside the program or under a shorter path.")};
  subject.report.add(finding);
}

void check_place(Subject& subject) {
  const std::string obstacle = service_obstacle(subject.path);
  if (obstacle.empty())
    subject.report.add({Level::ok, "place", translated("the service can open it here")});
  else
    subject.report.add(
        {Level::warning, "place",
         format_text(translated("the service can't open it here: %s"), obstacle.c_str()),
         translated("Before you list it, copy it to /opt/apps/quorvelserver/bin (mode 0644).")});
}

std::unique_ptr<ReaderLibrary> load(const std::string& path, Steps& steps) {
  try {
    return std::make_unique<ReaderLibrary>(path);
  } catch (const ContractBreak&) {
    steps.refused = true;
    throw;
  }
}

void look_at_needed(const std::string& path, const std::set<std::string>& before, Steps& steps) {
  for (const std::string& file : loaded_files()) {
    std::error_code error;
    if (before.count(file) != 0 || std::filesystem::equivalent(file, path, error)) continue;
    const std::string obstacle = service_obstacle(file);
    if (obstacle.empty()) continue;
    std::snprintf(steps.needed, sizeof steps.needed, "%s", file.c_str());
    std::snprintf(steps.obstacle, sizeof steps.obstacle, "%s", obstacle.c_str());
    return;
  }
}

void go_through(const std::string& path, Steps& steps) {
  const std::set<std::string> before = loaded_files();
  const std::unique_ptr<ReaderLibrary> opened = load(path, steps);
  look_at_needed(path, before, steps);
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

/// The reason may be the maker's to mend, or lie beside the library, as in a settings file.
void report_refusal(Subject& subject, std::string_view reason) {
  if (reason.empty())
    subject.report.add({Level::failure, "getversion",
                        translated("it returned 0, which refuses loading"),
                        translated("Return non-zero, or write the reason into the error buffer.")});
  else
    subject.report.add(
        {Level::failure, "getversion",
         format_text(translated("it returned 0, which refuses loading: %s"),
                     readable(reason).c_str()),
         translated("The reason is the library's own: mend what it names. Missing hardware is "
                    "none; report that from scommand.")});
}

/// True when the answer is one that the service can use at all.
bool report_version(Subject& subject, const VersionRecord& version) {
  const char* name = "getversion";
  if (version.returned == 0) {
    report_refusal(subject, {version.error, strnlen(version.error, sizeof version.error)});
    return false;
  }
  if (answer_of(version).size() == sizeof version.answer) {
    subject.report.add({Level::failure, name,
                        translated("the answer has no terminating zero within its 1024 bytes"),
                        translated("Bound the list to 511 bytes: 1022 digits and a zero.")});
    return false;
  }
  subject.report.add({Level::ok, name,
                      format_text(translated("%zu hexadecimal digits"), answer_of(version).size()),
                      "", version.milliseconds});
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
    begin_call(translated("the service's own loader"));
    Funlib binding(subject.path.c_str());
    outcome->initialised = binding.init(outcome->text, sizeof outcome->text);
    copy_text(outcome->functions, binding.functions());
  });
  if (!finished) return;
  if (!outcome->initialised || list.text != outcome->functions)
    subject.report.add(
        {Level::failure, "service",
         format_text(translated("the service's own loader gets another result: %s"),
                     readable(outcome->text).c_str()),
         translated("Look for what depends on the content or place of the buffers.")});
  else
    subject.report.add(
        {Level::ok, "service", translated("the service's own loader accepts the library")});
}

}  // namespace

Loaded check_loading(Subject& subject, FunctionList& list) {
  subject.report.begin_group(translated("Loading"));
  check_file(subject);
  check_place(subject);
  const Shared<Steps> steps;
  const ChildEnd end = subject.run([&] { go_through(subject.path, *steps); });
  if (steps->needed[0] != '\0')
    subject.report.add(
        {Level::warning, "place",
         format_text(translated("the service can't open %s, which it is linked with: %s"),
                     readable_request(steps->needed).c_str(), steps->obstacle),
         translated("Install that in the system's folders, or link it statically.")});
  if (steps->entered)
    subject.report.add({Level::ok, "entry points", "init, uninit, scommand, getversion", "",
                        steps->load_milliseconds});
  if (steps->answered) {
    if (!report_version(subject, steps->version)) return Loaded::kBroken;
    list = make_function_list(subject.path, answer_of(steps->version));
    report_list(subject, answer_of(steps->version), list);
  }
  if (steps->ready)
    subject.report.add({Level::ok, "init", translated("ready"), "", steps->init_milliseconds});
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
  subject.report.begin_group(translated("Other libraries"));
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
    if (overlaps.empty())
      subject.report.add({Level::ok, "overlap",
                          format_text(translated("none with %s"), readable_request(path).c_str())});
  }
}
