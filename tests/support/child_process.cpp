#include "tests/support/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/checked.h"
#include "tests/support/files.h"

namespace {

/// For the functions that return the error's number, or 0.
void check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

/// The files stay unknown to the program under any descriptor but the three, which the tests that
/// count its descriptors rely on.
pid_t spawn(Launch launch) {
  std::signal(SIGINT, SIG_DFL);  // inherited; a shell that runs this program aside ignores it
  posix_spawn_file_actions_t actions;
  check(posix_spawn_file_actions_init(&actions), "posix_spawn");
  const auto open = [&](int descriptor, const std::filesystem::path& path, int flags) {
    posix_spawn_file_actions_addopen(&actions, descriptor, path.c_str(), flags, 0600);
  };
  constexpr int kWrite = O_WRONLY | O_CREAT | O_TRUNC;
  open(STDIN_FILENO, launch.input, O_RDONLY);
  open(STDOUT_FILENO, launch.output, kWrite);
  open(STDERR_FILENO, launch.errors, kWrite);
  posix_spawn_file_actions_addchdir_np(&actions, launch.directory.c_str());
  std::vector<char*> arguments;
  for (std::string& argument : launch.arguments) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  pid_t pid = 0;
  const int error =
      posix_spawnp(&pid, launch.program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  check(error, launch.program.c_str());
  return pid;
}

}  // namespace

ChildProcess::ChildProcess(const Launch& launch) : process(spawn(launch)) {}

ChildProcess::~ChildProcess() {
  signal(SIGKILL);
  if (process != 0) waitpid(process, nullptr, 0);
}

void ChildProcess::signal(int number) const {
  if (process != 0) ::kill(process, number);
}

void ChildProcess::stop() const {
  signal(SIGSTOP);
  waitpid(process, nullptr, WUNTRACED);
}

std::optional<int> ChildProcess::exit_status() {
  int raw = 0;
  if (process != 0 && waitpid(process, &raw, WNOHANG) == process) {
    process = 0;
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  }
  return status;
}

int ChildProcess::wait(std::chrono::seconds limit) {
  if (!eventually([this] { return exit_status().has_value(); }, limit))
    throw std::runtime_error("process " + std::to_string(process) + " did not end in time");
  return *status;
}

size_t ChildProcess::open_descriptors() const {
  const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t ChildProcess::resident_bytes() const {
  std::ifstream statm("/proc/" + std::to_string(process) + "/statm");
  size_t total_pages = 0;
  size_t resident_pages = 0;
  if (!(statm >> total_pages >> resident_pages))
    throw std::runtime_error("process " + std::to_string(process) + " has ended");
  return resident_pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

std::chrono::milliseconds ChildProcess::processor_time() const {
  clockid_t clock = 0;
  timespec used = {};
  check(clock_getcpuclockid(process, &clock), "clock_getcpuclockid");
  checked(clock_gettime(clock, &used), "clock_gettime");
  return std::chrono::milliseconds(used.tv_sec * 1000 + used.tv_nsec / 1000000);
}

std::set<pid_t> children_of(pid_t process) {
  std::set<pid_t> found;
  const std::filesystem::path tasks("/proc/" + std::to_string(process) + "/task");
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::ifstream list(task.path() / "children");
    for (pid_t pid = 0; list >> pid;) found.insert(pid);
  }
  return found;
}

ProgramResult run_program(const std::vector<std::string>& arguments, const std::string& input) {
  const TemporaryFolder folder("program");
  const auto at = [&](const char* name) { return folder.path() / name; };
  write_file(at("input"), input);
  ChildProcess program({arguments.at(0), arguments, ".", at("input"), at("output"), at("errors")});
  const int status = program.wait();
  return {status, read_file(at("output")), read_file(at("errors"))};
}
