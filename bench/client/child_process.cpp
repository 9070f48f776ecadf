#include "bench/client/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "bench/client/service_folder.h"

extern char** environ;

namespace {

constexpr std::chrono::milliseconds kPollInterval(2);

void check(int error, const std::string& what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

/// What posix_spawn does in the child before it starts the program.
class SpawnSetup {
 public:
  SpawnSetup() {
    check(posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
    check(posix_spawnattr_init(&attributes), "posix_spawnattr_init");
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  ~SpawnSetup() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }

  void open(int descriptor, const std::filesystem::path& path, int flags) {
    constexpr mode_t kMode = 0600;
    check(posix_spawn_file_actions_addopen(&actions, descriptor, path.c_str(), flags, kMode),
          path.string());
  }

  void change_directory(const std::filesystem::path& path) {
    check(posix_spawn_file_actions_addchdir_np(&actions, path.c_str()), path.string());
  }

  /// A shell that runs tests in the background ignores SIGINT, and its children inherit that.
  void restore_interrupt() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    check(posix_spawnattr_setsigdefault(&attributes, &signals), "posix_spawnattr_setsigdefault");
    check(posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF), "posix_spawnattr_setflags");
  }

  pid_t run(const std::string& program, std::vector<std::string> arguments) const {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_t pid = 0;
    check(posix_spawnp(&pid, program.c_str(), &actions, &attributes, pointers.data(), environ),
          program);
    return pid;
  }

 private:
  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attributes{};
};

}  // namespace

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : process(std::exchange(other.process, 0)), status(other.status) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  std::swap(process, other.process);
  std::swap(status, other.status);
  return *this;
}

ChildProcess::~ChildProcess() {
  if (process == 0) return;
  signal(SIGKILL);
  while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void ChildProcess::signal(int number) const {
  if (process != 0) ::kill(process, number);
}

std::optional<int> ChildProcess::exit_status() {
  int raw = 0;
  if (process == 0 || waitpid(process, &raw, WNOHANG) != process) return status;
  process = 0;
  constexpr int kSignalBase = 128;
  status = WIFEXITED(raw) ? WEXITSTATUS(raw) : kSignalBase + WTERMSIG(raw);
  return status;
}

int ChildProcess::wait(std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (const auto found = exit_status()) return *found;
    if (std::chrono::steady_clock::now() > deadline) {
      signal(SIGKILL);
      throw std::runtime_error("process " + std::to_string(process) + " did not end in time");
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

size_t ChildProcess::open_descriptors() const {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t ChildProcess::resident_bytes() const {
  std::ifstream statm("/proc/" + std::to_string(process) + "/statm");
  size_t total_pages = 0;
  size_t resident_pages = 0;
  if (!(statm >> total_pages >> resident_pages)) {
    throw std::runtime_error("process " + std::to_string(process) + " has ended");
  }
  return resident_pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

ChildProcess spawn(const Launch& launch) {
  constexpr int kWriteFlags = O_WRONLY | O_CREAT | O_TRUNC;
  SpawnSetup setup;
  setup.open(STDIN_FILENO, launch.input, O_RDONLY);
  setup.open(STDOUT_FILENO, launch.output, kWriteFlags);
  setup.open(STDERR_FILENO, launch.errors, kWriteFlags);
  setup.change_directory(launch.directory);
  setup.restore_interrupt();
  return ChildProcess(setup.run(launch.program.string(), launch.arguments));
}

ProgramResult run_program(const std::vector<std::string>& arguments, const std::string& input) {
  const TemporaryFolder folder("program");
  Launch launch{arguments.at(0), arguments};
  launch.input = folder.path() / "input";
  launch.output = folder.path() / "output";
  launch.errors = folder.path() / "errors";
  write_file(launch.input, input);
  ProgramResult result;
  result.status = spawn(launch).wait();
  result.output = read_file(launch.output);
  result.errors = read_file(launch.errors);
  return result;
}
