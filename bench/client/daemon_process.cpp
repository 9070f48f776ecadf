#include "bench/client/daemon_process.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr const char* kProgramName = "quorvelserver";
constexpr std::chrono::seconds kStartLimit(60);
constexpr std::chrono::milliseconds kPollInterval(5);

std::set<pid_t> children() {
  std::set<pid_t> found;
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    std::ifstream list(task.path() / "children");
    for (pid_t pid = 0; list >> pid;) found.insert(pid);
  }
  return found;
}

bool is_service(pid_t pid) {
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  return std::getline(comm, name) && name == kProgramName;
}

Launch launch_of(const ServiceFolder& folder, const std::vector<std::string>& arguments,
                 StartAs start_as) {
  Launch launch;
  launch.program = folder.program();
  launch.directory = folder.path();
  launch.output = folder.path() / "output.txt";
  launch.errors = folder.path() / "errors.txt";
  switch (start_as) {
    case StartAs::kAbsolute:
      launch.arguments = {folder.program().string()};
      break;
    case StartAs::kDotRelative:
      launch.arguments = {"./bin/quorvelserver"};
      break;
    case StartAs::kRelative:
      launch.arguments = {"bin/quorvelserver"};
      break;
    case StartAs::kByPath:  // as a shell does: the kernel gets the path, the program its bare name
      launch.arguments = {kProgramName};
      break;
  }
  launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
  return launch;
}

/// Looked up in the kernel's tables: a connection made to find out would show in the service's log
/// and descriptors.
bool listens(uint16_t port) {
  std::ostringstream suffix;  // as the tables print a port
  suffix << ':' << std::hex << std::uppercase << std::setw(4) << std::setfill('0') << port;
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream lines(table);
    for (std::string line; std::getline(lines, line);) {
      std::string slot;
      std::string local;
      std::string remote;
      std::string state;
      std::istringstream(line) >> slot >> local >> remote >> state;
      constexpr const char* kListenState = "0A";
      if (state == kListenState && local.find(suffix.str()) != std::string::npos) return true;
    }
  }
  return false;
}

}  // namespace

DaemonProcess::DaemonProcess(const ServiceFolder& folder, const std::vector<std::string>& arguments,
                             StartAs start_as)
    : directory(folder.path()) {
  if (prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0) {
    throw std::system_error(errno, std::generic_category(), "PR_SET_CHILD_SUBREAPER");
  }
  const std::set<pid_t> before = children();
  const int status = spawn(launch_of(folder, arguments, start_as)).wait();
  for (const pid_t pid : children()) {
    if (before.count(pid) == 0 && is_service(pid)) daemon = ChildProcess(pid);
  }
  if (status != 0 || daemon.pid() == 0) {
    throw std::runtime_error("no daemon, exit status " + std::to_string(status) + "\n" + errors());
  }
}

template <typename Condition>
void DaemonProcess::wait_until(const std::string& what, Condition reached) {
  const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
  while (!reached()) {
    const bool ended = daemon.exit_status().has_value();
    if (ended || std::chrono::steady_clock::now() > deadline) {
      throw std::runtime_error("the service " + std::string(ended ? "ended" : "took too long") +
                               " before " + what + "\n" + output() + errors());
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

void DaemonProcess::wait_until_listening(uint16_t port) {
  wait_until("it listened", [port] { return listens(port); });
}

void DaemonProcess::wait_for_message(std::string_view text) {
  wait_until("the message " + std::string(text),
             [this, text] { return (output() + "\n" + errors()).find(text) != std::string::npos; });
}

int DaemonProcess::stop() {
  daemon.signal(SIGINT);
  return daemon.wait();
}

std::string DaemonProcess::output() const { return read_file(directory / "output.txt"); }

std::string DaemonProcess::errors() const { return read_file(directory / "errors.txt"); }
