#pragma once

#include <sys/types.h>

#include <csignal>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// What of a process belongs to the service, as it is when the object is made.
class ProcessState {
 public:
  ProcessState();

  /// Throws a ContractBreak, put down to the call that ran last, when something has changed.
  void expect_unchanged() const;

 private:
  std::string directory;
  std::string locale;
  mode_t mask;
  std::vector<std::pair<sighandler_t, int>> actions;  ///< of each watched signal, with SA_NOCLDWAIT
  std::vector<int> blocked;                           ///< signals, in this thread
  std::set<std::string> environment;
};

/// The children of this process, those included that have ended and that nobody has waited for.
std::vector<pid_t> child_processes();
