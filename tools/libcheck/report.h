#pragma once

#include <string>
#include <vector>

/// The outcome of one check; spelled in the JSON report as here. A warning breaks no rule of the
/// contract, but somebody will meet it.
enum class Level { ok, warning, failure };

struct Finding {
  Level level = Level::ok;
  std::string name;          ///< what was checked
  std::string text;          ///< what was found; UTF-8, like all texts here
  std::string cure = {};     ///< what to do about it; empty when it is ok
  double milliseconds = -1;  ///< how long the call took; negative: no call, or it did not return
  std::string request = {};  ///< the request as a page sends it; empty: none
  std::string reply = {};    ///< the reply as the page gets it; empty: none
  std::string group = {};    ///< set by the report
};

/// Collects the findings in the order in which they are made.
class Report {
 public:
  virtual ~Report() = default;

  /// The findings from here on belong under this heading.
  void begin_group(const std::string& heading) { group = heading; }
  void add(Finding finding);

  const std::vector<Finding>& all() const { return findings; }
  int count(Level level) const;

 protected:
  /// Called for each finding at once: a check can take a while.
  virtual void show(const Finding&) {}

 private:
  std::string group;
  std::vector<Finding> findings;
};

/// Shows the findings to people, on standard output.
class ConsoleReport : public Report {
 public:
  ConsoleReport();
  void print_summary() const;

 protected:
  void show(const Finding& finding) override;

 private:
  bool colours;
  std::string shown_group;
};

/// The whole report as one JSON object; docs/reader-library.md lists its members.
std::string json_report(const Report& report, const std::string& library,
                        const std::vector<std::string>& functions, int exit_status);
