#include "tools/libcheck/calls.h"

#include <algorithm>
#include <set>

#include "tools/libcheck/reader_library.h"
#include "tools/libcheck/reply_rules.h"
#include "tools/libcheck/shared_memory.h"
#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

/// A call longer than this makes the users of other pages wait noticeably.
constexpr double kSlowCallMs = 2000;

struct Attempt {
  std::vector<Finding> problems;
  Verdict verdict;           // meaningful when the call came back
  double milliseconds = -1;  // negative: it did not come back
};

bool has_failure(const Attempt& attempt) {
  return std::any_of(attempt.problems.begin(), attempt.problems.end(),
                     [](const Finding& problem) { return problem.level == Level::failure; });
}

/// One request in a fresh child, from loading to unloading.
Attempt attempt(Subject& subject, const Request& request, const std::string& name) {
  const Shared<CommandRecord> record;
  const ChildEnd end = subject.run([&] {
    ReaderLibrary library(subject.path);
    library.find_entry_points();
    library.getversion();
    library.init();
    *record = library.scommand(request.name, request.command);
    library.uninit();
    library.unload();
  });
  Attempt result;
  if (end.finished) {
    result.milliseconds = record->milliseconds;
    result.verdict =
        judge_reply({record->reply, sizeof record->reply}, record->returned, request.name);
    result.problems = result.verdict.problems;
  } else {
    result.problems.push_back(broken("", end));
  }
  for (Finding& problem : result.problems) {
    problem.name = name;
    problem.milliseconds = result.milliseconds;
    problem.request = readable_request(request.page);
    problem.reply = result.verdict.page;
  }
  return result;
}

void judge_time(const Attempt& result, const std::string& name, Subject& subject) {
  if (result.milliseconds > kSlowCallMs)
    subject.report.add(
        {Level::warning, name, translated("the call is slow, and all other pages wait meanwhile"),
         translated("Give up early on hardware that does not answer."), result.milliseconds});
}

/// The same problem of several odd requests.
struct Problem {
  Finding finding;  // on the first of them
  std::string label;
  int others = 0;
};

void collect(const std::vector<Finding>& found, const std::string& label,
             std::vector<Problem>& problems) {
  for (const Finding& finding : found) {
    const auto known = std::find_if(problems.begin(), problems.end(), [&](const Problem& problem) {
      return problem.finding.text == finding.text;
    });
    if (known == problems.end())
      problems.push_back({finding, label});
    else
      ++known->others;
  }
}

void report_problem(Subject& subject, const Problem& problem) {
  Finding finding = problem.finding;
  const std::string others =
      problem.others > 0 ? format_text(translated(" and %d more"), problem.others) : "";
  finding.text = "(" + problem.label + others + ") " + finding.text;
  subject.report.add(finding);
}

/// Makes the attempts. One line tells of those without problems, one of each kind of problem.
void check_group(Subject& subject, const std::string& name, const std::vector<Request>& requests,
                 bool must_be_refused) {
  std::vector<Problem> problems;
  int survived = 0;
  double longest = 0;
  for (const Request& request : requests) {
    Attempt result = attempt(subject, request, name);
    if (must_be_refused && result.verdict.success)
      result.problems.push_back(
          {Level::failure, name,
           translated("the reply says \"true\" for a function that is not served"),
           translated("Compare the whole name, and refuse what is not served."),
           result.milliseconds, readable_request(request.page), result.verdict.page});
    collect(result.problems, request.label, problems);
    if (result.problems.empty()) ++survived;
    longest = std::max(longest, result.milliseconds);
  }
  for (const Problem& problem : problems) report_problem(subject, problem);
  if (survived > 0)
    subject.report.add({Level::ok, name,
                        format_text(must_be_refused ? translated("%d of %zu refused")
                                                    : translated("%d of %zu odd requests answered"),
                                    survived, requests.size()),
                        "", longest});
}

}  // namespace

std::vector<Request> check_requests(Subject& subject, const std::vector<Request>& requests) {
  std::vector<Request> answered;
  subject.report.begin_group(translated("Requests"));
  for (const Request& request : requests) {
    const std::string name = readable_request(request.name);
    const Attempt result = attempt(subject, request, name);
    const std::string note =
        result.verdict.beyond_gbk ? translated("(GB18030 beyond GBK, which pages get too) ") : "";
    for (const Finding& problem : result.problems) subject.report.add(problem);
    judge_time(result, name, subject);
    if (result.problems.empty())
      subject.report.add({Level::ok, name, note + result.verdict.page, "", result.milliseconds,
                          readable_request(request.page), result.verdict.page});
    if (!has_failure(result)) answered.push_back(request);
  }
  return answered;
}

void check_odd_requests(Subject& subject, const std::vector<Request>& requests,
                        const std::vector<Request>& answered) {
  subject.report.begin_group(translated("Odd requests"));
  std::set<std::string> done;
  for (const Request& request : answered)
    if (done.insert(request.name).second)
      check_group(subject, readable_request(request.name), odd_requests(request.page), false);
  for (const Request& request : requests)
    if (done.insert(request.name).second)
      subject.report.add({Level::warning, readable_request(request.name),
                          translated("not tried with odd requests"),
                          translated("Correct the answer to its ordinary request first.")});
  const std::string declared = requests.empty() ? "" : requests.front().name;
  check_group(subject, "unknown functions", unknown_functions(declared), true);
}
