#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/eventually.h"

/// How to start a program. SIGINT has its default action in it, and in this program from then on.
struct Launch {
  std::filesystem::path program;       ///< looked up in PATH when it holds no "/"
  std::vector<std::string> arguments;  ///< the first is the name the program sees as its own
  std::filesystem::path directory = ".";
  std::filesystem::path input = "/dev/null";
  std::filesystem::path output = "/dev/null";  ///< created or emptied, like `errors`
  std::filesystem::path errors = "/dev/null";
};

/// Owns one process that this program has to collect. The destructor kills the process and collects
/// it. Used from one thread at a time.
class ChildProcess {
 public:
  explicit ChildProcess(const Launch& launch);            ///< throws std::system_error
  explicit ChildProcess(pid_t child) : process(child) {}  ///< takes over a child
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// The process id, 0 once the process has been collected.
  pid_t pid() const { return process; }

  /// Sends a signal; does nothing once the process has been collected.
  void signal(int number) const;

  /// Sends SIGSTOP to the running process and waits until all its threads have stopped.
  void stop() const;

  /// The exit status, or 128 plus the number of the signal that ended the process; nothing while
  /// it runs. May be asked again afterwards.
  std::optional<int> exit_status();

  /// Waits for the end and returns exit_status(). Throws std::runtime_error when the process has
  /// not ended within the limit.
  int wait(std::chrono::seconds limit = kPatience);

  /// Figures of the running process, read from /proc. Throw std::runtime_error when it has ended.
  size_t open_descriptors() const;
  size_t resident_bytes() const;
  std::chrono::milliseconds processor_time() const;

 private:
  pid_t process = 0;
  std::optional<int> status;
};

/// The processes that this one has started and not collected.
std::set<pid_t> children_of(pid_t process);

struct ProgramResult {
  int status = 0;  ///< as ChildProcess::exit_status()
  std::string output;
  std::string errors;
};

/// Runs a program, named by the first argument, to its end, feeding it `input`, and returns what it
/// wrote. Throws as ChildProcess.
ProgramResult run_program(const std::vector<std::string>& arguments, const std::string& input = {});
