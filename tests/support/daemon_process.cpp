#include "tests/support/daemon_process.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "tests/support/checked.h"
#include "tests/support/tcp_socket.h"

namespace fs = std::filesystem;

namespace {

Launch launch_of(const ServiceFolder& folder, const std::vector<std::string>& arguments,
                 const std::string& name) {
  // As a shell does, the kernel always gets the path.
  Launch launch{folder.program(), {name.empty() ? folder.program().string() : name}, folder.path()};
  launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
  launch.output = folder.path() / "output.txt";
  launch.errors = folder.path() / "errors.txt";
  return launch;
}

/// Starts the service and returns the daemon's process id: that of the child that is new when the
/// launcher has ended.
pid_t adopt(const ServiceFolder& folder, const Launch& launch) {
  // Under an emulator that does not know the call (cmake/run-arm64) this process was born with it.
  if (std::getenv("QUORVEL_EMULATED") == nullptr)
    checked(prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), "PR_SET_CHILD_SUBREAPER");
  const std::set<pid_t> before = children_of(getpid());
  const int status = ChildProcess(launch).wait();
  for (const pid_t pid : children_of(getpid()))
    if (status == 0 && before.count(pid) == 0) return pid;
  throw std::runtime_error("no daemon in " + folder.path().string() + ", exit status " +
                           std::to_string(status) + "\n" + read_file(launch.errors));
}

}  // namespace

DaemonProcess::DaemonProcess(const ServiceFolder& folder, const std::vector<std::string>& arguments,
                             const std::string& name)
    : directory(folder.path()), daemon(adopt(folder, launch_of(folder, arguments, name))) {}

void DaemonProcess::wait_until(const std::function<bool()>& reached) {
  bool done = false;
  const bool in_time = eventually([&] {
    const bool ended = daemon.exit_status().has_value();
    return (done = reached()) || ended;
  });
  if (!done)
    throw std::runtime_error("the service " + std::string(in_time ? "ended" : "took too long") +
                             "\n" + output() + errors());
}

void DaemonProcess::wait_until_listening(uint16_t port) {
  // A connection made to find out would show in the service's log and descriptors.
  wait_until([port] { return sockets_in_kernel(port, "0A ") > 0; });
}

void DaemonProcess::wait_for_message(std::string_view text) {
  wait_until([&] { return (output() + "\n" + errors()).find(text) != std::string::npos; });
}

int DaemonProcess::stop() {
  daemon.signal(SIGINT);
  return daemon.wait();
}

std::string DaemonProcess::output() const { return read_file(directory / "output.txt"); }

std::string DaemonProcess::errors() const { return read_file(directory / "errors.txt"); }
