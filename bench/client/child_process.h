#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// Owns one process that this program has to collect: a child, or a daemon that it adopted.
/// The destructor kills the process and collects it. Used from one thread at a time.
class ChildProcess {
 public:
  ChildProcess() = default;  ///< owns nothing
  explicit ChildProcess(pid_t pid) : process(pid) {}
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// The process id, 0 once the process has been collected.
  pid_t pid() const { return process; }

  /// Sends a signal; does nothing once the process has been collected.
  void signal(int number) const;

  /// The exit status, or 128 plus the number of the signal that ended the process; nothing while
  /// it runs. May be asked again afterwards.
  std::optional<int> exit_status();

  /// Waits for the end and returns exit_status(). Throws std::runtime_error, and kills the
  /// process, when it has not ended within the limit, which only keeps a hang from lasting.
  int wait(std::chrono::seconds limit = std::chrono::seconds(60));

  /// Figures of the running process, read from /proc. Throw std::runtime_error when it has ended.
  size_t open_descriptors() const;
  size_t resident_bytes() const;

 private:
  pid_t process = 0;
  std::optional<int> status;
};

/// How to start a program.
struct Launch {
  std::filesystem::path program;       ///< a relative path is taken from `directory`
  std::vector<std::string> arguments;  ///< the first is the name the program sees as its own
  std::filesystem::path directory = ".";
  std::filesystem::path input = "/dev/null";
  std::filesystem::path output = "/dev/null";  ///< created or emptied, like `errors`
  std::filesystem::path errors = "/dev/null";
};

/// Starts a program with SIGINT at its default action. Throws std::system_error.
ChildProcess spawn(const Launch& launch);

struct ProgramResult {
  int status = 0;  ///< as ChildProcess::exit_status()
  std::string output;
  std::string errors;
};

/// Runs a program to its end, feeding it `input`, and returns what it wrote. Its name is the first
/// argument, looked up in PATH when it holds no "/". Throws as spawn() and ChildProcess::wait().
ProgramResult run_program(const std::vector<std::string>& arguments, const std::string& input = {});
