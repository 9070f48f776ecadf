#include "bench/load/measured_server.h"

#include <sched.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "tests/support/checked.h"
#include "tests/support/eventually.h"
#include "tests/support/tcp_socket.h"
#include "tests/support/ws_client.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::microseconds kPollInterval(200);
constexpr double kKilobytesPerMegabyte = 1024;
constexpr char kDemoLibrary[] = "libquorveldemo.so";
constexpr char kIsolateBoth[] = "[ISOLATED]\nlib1=30\nlib2=30\n";

/// Asks as soon as the server listens.
std::string ask_when_ready(std::uint16_t port, const std::string& request) {
  const auto listens = [port] {
    try {
      TcpSocket::connect(port);
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  };
  if (!eventually(listens, kPatience, kPollInterval))
    throw std::runtime_error("a server does not start");
  return WsClient(port).ask(request);
}

/// The value in kB of a line of /proc/PID/status.
double status_kilobytes(pid_t pid, const std::string& name) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; status >> word;) {
    double value = 0;
    if (word == name + ":" && status >> value) return value;
  }
  throw std::runtime_error("process " + std::to_string(pid) + " has no " + name);
}

void use_cpu(unsigned number) {
  if (std::thread::hardware_concurrency() < 2) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(number, &set);
  checked(sched_setaffinity(0, sizeof set, &set), "sched_setaffinity");
}

}  // namespace

void use_server_cpu() { use_cpu(0); }

void use_generator_cpu() { use_cpu(1); }

const char* server_name(ServerKind kind) {
  static constexpr const char* kNames[] = {"service", "bare",     "node",
                                           "logging", "isolated", "earlier"};
  return kNames[static_cast<std::size_t>(kind)];
}

MeasuredServer::MeasuredServer(ServerKind kind, const ServerPrograms& programs,
                               const std::string& request, const std::string& reply)
    : listening_port(free_port()) {
  if (kind != ServerKind::kBare && kind != ServerKind::kNode) {
    folder = std::make_unique<ServiceFolder>(kind == ServerKind::kEarlier ? programs.earlier
                                                                          : programs.stage);
    folder->write_service_ini({kDemoLibrary, programs.reader.string()}, listening_port,
                              kind == ServerKind::kIsolated ? kIsolateBoth : "");
  }
  const auto begun = Clock::now();
  launch(kind, programs, reply);
  answered = ask_when_ready(listening_port, request);
  started_in_ms = std::chrono::duration<double, std::milli>(Clock::now() - begun).count();
  if (!reply.empty() && answered != reply)
    throw std::runtime_error(std::string(server_name(kind)) + " answers: " + answered);
}

MeasuredServer::~MeasuredServer() = default;

void MeasuredServer::launch(ServerKind kind, const ServerPrograms& programs,
                            const std::string& reply) {
  if (folder) {
    const bool logs = kind == ServerKind::kLogging;
    daemon = std::make_unique<DaemonProcess>(
        *folder, logs ? std::vector<std::string>{} : std::vector<std::string>{"-d", "0"});
    process = daemon->process().pid();
    return;
  }
  const std::string port_text = std::to_string(listening_port);
  Launch launch;
  if (kind == ServerKind::kBare) {
    launch.program = programs.bare;
    launch.arguments = {programs.bare.string(), port_text, reply};
  } else {
    launch.program = "node";
    launch.arguments = {"node", programs.node_main.string(), port_text, programs.reader.string()};
  }
  process = child.emplace(launch).pid();
}

double MeasuredServer::resident_mb() const {
  return status_kilobytes(process, "VmRSS") / kKilobytesPerMegabyte;
}

double MeasuredServer::helper_resident_mb() const {
  const std::string pid = std::to_string(process);
  std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
  for (pid_t child_pid = 0; children >> child_pid;) {
    const std::string command = read_file("/proc/" + std::to_string(child_pid) + "/cmdline");
    if (command.find(kDemoLibrary) != std::string::npos)
      return status_kilobytes(child_pid, "VmRSS") / kKilobytesPerMegabyte;
  }
  throw std::runtime_error("the demo library has no helper process");
}

double MeasuredServer::cpu_seconds() const {
  constexpr double kSecondsPerNanosecond = 1e-9;
  double seconds = 0;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream schedstat(task.path() / "schedstat");
    double nanoseconds = 0;
    if (schedstat >> nanoseconds) seconds += kSecondsPerNanosecond * nanoseconds;
  }
  return seconds;
}
