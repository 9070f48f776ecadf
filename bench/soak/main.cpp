// Sends mixed traffic to a service of its own, checks every reply, and tells at the end whether the
// service has kept anything. Usage:
//   quorvel_soak minutes NUMBER STAGE   from several threads
//   quorvel_soak steps NUMBER STAGE     from one thread: the same steps in each run
// STAGE is the directory in which the service is installed. Ends with 0 only if nothing was wrong.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "bench/soak/soaked_service.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kThreads = 4;
constexpr std::chrono::seconds kWarmUp(30);
constexpr std::size_t kAllowedGrowth = 262144;  // bytes: the spread of an allocator's habits
constexpr std::size_t kPendingEntries = 100;
constexpr std::size_t kLongestPiece = 143359;  // bytes that an entry takes
constexpr double kMegabyte = 1024 * 1024;

/// Lets all threads send traffic until the time is over.
void soak(SoakedService& service, SoakCounts& counts, std::chrono::seconds duration,
          unsigned first_number) {
  const auto deadline = Clock::now() + duration;
  std::vector<std::thread> threads;
  for (unsigned index = 0; index < kThreads; ++index) {
    threads.emplace_back([&, index] {
      Traffic(service.target(), counts, service.helpers(), first_number + index, index == 0)
          .run([deadline] { return Clock::now() < deadline; });
    });
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

void print(const char* what, const std::atomic<std::uint64_t>& count) {
  std::printf("%-32s %12llu\n", what, static_cast<unsigned long long>(count.load()));
}

/// Whether the traffic was answered as it should be, and the service has ended well.
bool report(const SoakCounts& counts, bool descriptors_given_back, int status) {
  print("requests", counts.requests);
  print("connections opened", counts.connections);
  print("helper processes killed", counts.kills);
  print("wrong replies", counts.wrong);
  print("lost replies", counts.lost);
  std::printf("%-32s %12s\n", "descriptors given back", descriptors_given_back ? "all" : "NOT ALL");
  std::printf("%-32s %12d\n", "exit status of the service", status);
  return counts.wrong == 0 && counts.lost == 0 && counts.requests > 0 && descriptors_given_back &&
         status == 0;
}

/// Waits until the service is idle; its memory then, in bytes.
std::size_t idle_memory(SoakedService& service) {
  service.gives_back_descriptors();
  return service.process().resident_bytes();
}

bool run_minutes(SoakedService& service, std::chrono::minutes duration) {
  SoakCounts counts;
  fill_pending_table(service.target().port);
  soak(service, counts, kWarmUp, 1);
  const std::size_t begin = idle_memory(service);
  soak(service, counts, duration, 1 + kThreads);
  const std::size_t end = idle_memory(service);
  std::printf("%-32s %12.2f %12.2f\n", "resident MB, start and end",
              static_cast<double>(begin) / kMegabyte, static_cast<double>(end) / kMegabyte);
  const bool given_back = service.gives_back_descriptors();
  return report(counts, given_back, service.stop()) && end <= begin + kAllowedGrowth;
}

/// Stops at the first connection that is lost, since those behind it would take as long.
bool run_steps(SoakedService& service, long steps) {
  SoakCounts counts;
  Traffic(service.target(), counts, service.helpers(), 1, true).run([&] {
    return steps-- > 0 && counts.lost == 0;
  });
  const bool given_back = service.gives_back_descriptors();
  return report(counts, given_back, service.stop());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string unit = argc == 4 ? argv[1] : "";
  const long number = argc == 4 ? std::strtol(argv[2], nullptr, 10) : 0;
  if (number <= 0 || (unit != "minutes" && unit != "steps")) {
    std::fputs("usage: quorvel_soak minutes|steps NUMBER STAGE\n", stderr);
    return 2;
  }
  try {
    SoakedService service(argv[3]);
    const bool right = unit == "steps" ? run_steps(service, number)
                                       : run_minutes(service, std::chrono::minutes(number));
    std::puts(right ? "nothing wrong" : "SOMETHING IS WRONG");
    return right ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel_soak: %s\n", error.what());
    return 1;
  }
}
