#include "tools/libcheck/process_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/libcheck/child.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

/// Those whose actions the service relies on.
constexpr int kWatchedSignals[] = {SIGALRM, SIGCHLD, SIGINT, SIGPIPE, SIGTERM};

std::string signal_name(int number) {
  const char* name = sigabbrev_np(number);
  return name != nullptr ? std::string("SIG") + name : format_text(translated("signal %d"), number);
}

std::vector<int> blocked_signals() {
  sigset_t set;
  pthread_sigmask(SIG_SETMASK, nullptr, &set);
  std::vector<int> numbers;
  for (int number = 1; number < NSIG; ++number)
    if (sigismember(&set, number) == 1) numbers.push_back(number);
  return numbers;
}

/// The names of what only one of the two has, of entries NAME=VALUE.
std::set<std::string> changed_names(const std::set<std::string>& before,
                                    const std::set<std::string>& after) {
  std::vector<std::string> entries;
  std::set_symmetric_difference(before.begin(), before.end(), after.begin(), after.end(),
                                std::back_inserter(entries));
  std::set<std::string> names;
  for (const std::string& entry : entries) names.insert(entry.substr(0, entry.find('=')));
  return names;
}

}  // namespace

ProcessState::ProcessState()
    : directory(std::filesystem::current_path()),
      locale(std::setlocale(LC_ALL, nullptr)),
      mask(umask(0)),
      blocked(blocked_signals()) {
  umask(mask);
  for (const int number : kWatchedSignals) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    actions.emplace_back(action.sa_handler, action.sa_flags & SA_NOCLDWAIT);
  }
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    environment.insert(*entry);
}

void ProcessState::expect_unchanged() const {
  const ProcessState now;
  std::string changes;
  const auto note = [&](const std::string& what) {
    changes += (changes.empty() ? "" : ", ") + what;
  };
  if (directory != now.directory) note(translated("working directory"));
  if (locale != now.locale) note(translated("locale"));
  if (mask != now.mask) note(translated("umask"));
  for (std::size_t i = 0; i < actions.size(); ++i)
    if (actions[i] != now.actions[i])
      note(format_text(translated("action of %s"), signal_name(kWatchedSignals[i]).c_str()));
  if (blocked != now.blocked)
    note(now.blocked.empty()
             ? translated("blocked signals")
             : format_text(now.blocked.size() > 1 ? translated("blocked signals, now %s and others")
                                                  : translated("blocked signals, now %s"),
                           signal_name(now.blocked.front()).c_str()));
  for (const std::string& name : changed_names(environment, now.environment))
    note(format_text(translated("environment variable %s"), name.c_str()));
  if (!changes.empty())
    throw ContractBreak(
        format_text(translated("changes what belongs to the service: %s"), changes.c_str()),
        translated("Leave the process as it is; a driver underneath may be what changes it."));
}

std::vector<pid_t> child_processes() {
  std::vector<pid_t> children;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream list(thread.path() / "children");
    children.insert(children.end(), std::istream_iterator<pid_t>(list), {});
  }
  return children;
}
