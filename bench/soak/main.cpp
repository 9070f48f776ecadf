// Sends mixed traffic to a service of its own for minutes and checks every reply; then tells
// whether the service has grown. Usage: quorvel_soak MINUTES STAGE READER, where STAGE is the
// directory in which the service is installed, and READER the library that it is to isolate. Ends
// with 0 only if nothing was wrong.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <thread>
#include <vector>

#include "bench/soak/probe_target.h"
#include "bench/soak/traffic.h"
#include "tests/support/daemon_process.h"
#include "tests/support/service_folder.h"
#include "tests/support/tcp_socket.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kThreads = 4;
constexpr std::chrono::seconds kWarmUp(30);
constexpr std::chrono::seconds kSettleTime(2);  // a helper that was killed has been replaced
constexpr std::chrono::seconds kBetweenKills(1);
constexpr std::size_t kAllowedGrowth = 262144;  // bytes: the spread of an allocator's habits
constexpr std::size_t kPendingEntries = 100;
constexpr std::size_t kLongestPiece = 143359;  // bytes that an entry takes
constexpr double kMegabyte = 1024 * 1024;

struct Footprint {
  std::size_t descriptors;
  std::size_t resident;
};

/// Kills what the service has started: the helper of the isolated library.
void kill_helpers(const ChildProcess& service) {
  const std::string process = std::to_string(service.pid());
  std::ifstream list("/proc/" + process + "/task/" + process + "/children");
  for (pid_t helper = 0; list >> helper;) kill(helper, SIGKILL);
}

/// Lets all threads send traffic until the time is over.
void soak(const SoakTarget& target, SoakCounts& counts, std::chrono::seconds duration,
          unsigned first_number, const ChildProcess& service) {
  const auto deadline = Clock::now() + duration;
  std::vector<std::thread> threads;
  for (unsigned index = 0; index < kThreads; ++index) {
    threads.emplace_back([&, index] {
      Traffic(target, counts, first_number + index).run([deadline] {
        return Clock::now() < deadline;
      });
    });
  }
  while (Clock::now() + kBetweenKills < deadline) {
    std::this_thread::sleep_for(kBetweenKills);
    kill_helpers(service);
  }
  for (std::thread& thread : threads) thread.join();
}

/// Fills every entry that the service's table of unfinished messages has. The memory of an entry
/// stays resident once it has been used, so without this the service would seem to grow whenever
/// chance brings more unfinished messages together than ever before.
void fill_pending_table(std::uint16_t port) {
  const std::string piece(kLongestPiece, ' ');
  std::vector<WsClient> clients;
  for (std::size_t count = 0; count < kPendingEntries; ++count) {
    clients.emplace_back(port).send_piece(piece, false);
    clients.back().ping();
  }
}

/// Of the idle service, once the connections that have ended are gone.
Footprint footprint(const ChildProcess& service) {
  std::size_t descriptors = service.open_descriptors();
  auto steady_since = Clock::now();
  while (Clock::now() - steady_since < kSettleTime) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::size_t now = service.open_descriptors();
    if (now != descriptors) steady_since = Clock::now();
    descriptors = now;
  }
  return {descriptors, service.resident_bytes()};
}

SoakTarget start(const ServiceFolder& folder, const std::string& reader,
                 const std::vector<std::uint16_t>& reachable,
                 std::optional<DaemonProcess>& daemon) {
  SoakTarget target;
  target.port = free_port();
  target.reachable = reachable;
  target.page = read_file(folder.path() / "mount-origin/index.html");
  folder.write_service_ini({"libquorveldemo.so", reader}, target.port, "[ISOLATED]\nlib2=10\n");
  daemon.emplace(folder);
  daemon->wait_until_listening(target.port);
  WsClient client(target.port);
  target.card = client.ask("readcardbas");
  client.ask(R"({"fid":"config","ip":"127.0.0.1","port":)" + std::to_string(reachable[0]) + "}");
  return target;
}

bool report(const SoakCounts& counts, const Footprint& begin, const Footprint& end, int status) {
  std::printf("%-32s %12llu\n", "requests",
              static_cast<unsigned long long>(counts.requests.load()));
  std::printf("%-32s %12llu\n", "connections opened",
              static_cast<unsigned long long>(counts.connections.load()));
  std::printf("%-32s %12llu\n", "wrong replies",
              static_cast<unsigned long long>(counts.wrong.load()));
  std::printf("%-32s %12llu\n", "lost replies",
              static_cast<unsigned long long>(counts.lost.load()));
  std::printf("%-32s %12zu %12zu\n", "descriptors, start and end", begin.descriptors,
              end.descriptors);
  std::printf("%-32s %12.2f %12.2f\n", "resident MB, start and end",
              static_cast<double>(begin.resident) / kMegabyte,
              static_cast<double>(end.resident) / kMegabyte);
  std::printf("%-32s %12d\n", "exit status of the service", status);
  return counts.wrong == 0 && counts.lost == 0 && counts.requests > 0 && status == 0 &&
         end.descriptors <= begin.descriptors && end.resident <= begin.resident + kAllowedGrowth;
}

bool run(std::chrono::minutes duration, const char* stage, const char* reader) {
  const ProbeTarget one;
  const ProbeTarget two;
  const ServiceFolder folder(stage);
  std::optional<DaemonProcess> daemon;
  const SoakTarget target = start(folder, reader, {one.port(), two.port()}, daemon);
  const ChildProcess& service = daemon->process();
  fill_pending_table(target.port);
  SoakCounts counts;
  soak(target, counts, kWarmUp, 1, service);
  const Footprint begin = footprint(service);
  soak(target, counts, duration, 1 + kThreads, service);
  const Footprint end = footprint(service);
  return report(counts, begin, end, daemon->stop());
}

}  // namespace

int main(int argc, char** argv) {
  const long minutes = argc == 4 ? std::strtol(argv[1], nullptr, 10) : 0;
  if (minutes <= 0) {
    std::fputs("usage: quorvel_soak MINUTES STAGE READER\n", stderr);
    return 2;
  }
  try {
    const bool right = run(std::chrono::minutes(minutes), argv[2], argv[3]);
    std::puts(right ? "nothing wrong" : "SOMETHING IS WRONG");
    return right ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel_soak: %s\n", error.what());
    return 1;
  }
}
