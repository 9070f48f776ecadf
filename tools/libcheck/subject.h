#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "tools/libcheck/child.h"
#include "tools/libcheck/report.h"

/// The library under examination, and what all checks of it share.
class Subject {
 public:
  /// `limit` bounds one call into the library; `round_count` is how often things are repeated to
  /// find leaks.
  Subject(std::string library_path, std::chrono::milliseconds call_limit, int round_count,
          Report& findings)
      : path(std::move(library_path)), report(findings), rounds(round_count), limit(call_limit) {}

  /// run_in_child, which also remembers what the library printed.
  ChildEnd run(const std::function<void()>& body, Leave leave = Leave::kAtOnce);

  /// run, and a finding under `name` unless the child finished. True when it did.
  bool passes(const std::string& name, const std::function<void()>& body,
              Leave leave = Leave::kAtOnce);

  /// Adds the finding on what the library printed so far.
  void report_output();

  const std::string path;  ///< absolute
  Report& report;
  const int rounds;

 private:
  const std::chrono::milliseconds limit;
  std::string printed;     ///< the first output
  std::string printed_by;  ///< the last call before it was seen
};

/// The finding on a child that did not finish.
Finding broken(const std::string& name, const ChildEnd& end);
