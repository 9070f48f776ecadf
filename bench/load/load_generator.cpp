#include "bench/load/load_generator.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "tests/support/checked.h"
#include "tests/support/eventually.h"
#include "tests/support/ws_frame.h"
#include "util/handle/unique_fd.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kEventsAtOnce = 64;
constexpr int kSilenceMs = std::chrono::milliseconds(kPatience).count();

double percentile_us(std::vector<std::uint32_t>& latencies_ns, double share) {
  if (latencies_ns.empty()) return 0;
  const auto rank = static_cast<std::ptrdiff_t>(share * static_cast<double>(latencies_ns.size()));
  const auto at = latencies_ns.begin() + rank;
  std::nth_element(latencies_ns.begin(), at, latencies_ns.end());
  return *at / 1e3;
}

}  // namespace

class LoadGenerator::Connection {
 public:
  Connection(const LoadPlan& plan, std::string_view request_bytes, std::string_view reply_bytes)
      : socket(plan.websocket ? connect_ws(plan.port) : TcpSocket::connect(plan.port)),
        request(request_bytes),
        reply(reply_bytes) {}

  int descriptor() const { return socket.descriptor(); }

  /// Begins the next request. Returns whether all of it has gone out.
  bool start() {
    begun = Clock::now();
    sent = received = 0;
    return send_on();
  }

  bool send_on() {
    while (sent < request.size()) {
      const auto done = ::send(descriptor(), request.data() + sent, request.size() - sent,
                               MSG_NOSIGNAL | MSG_DONTWAIT);
      if (done < 0 && errno == EAGAIN) return false;
      sent += static_cast<std::size_t>(checked(done, "send"));
    }
    return true;
  }

  /// Reads what is there. Returns whether the reply is complete.
  bool receive_on(std::vector<char>& block) {
    const auto done = recv(descriptor(), block.data(), block.size(), MSG_DONTWAIT);
    if (done < 0 && errno == EAGAIN) return false;
    const auto length = static_cast<std::size_t>(checked(done, "recv"));
    if (length == 0) throw std::runtime_error("the server closed a connection");
    if (length > reply.size() - received ||
        std::memcmp(block.data(), reply.data() + received, length) != 0)
      throw std::runtime_error("a reply is wrong: " + std::string(block.data(), length));
    received += length;
    return received == reply.size();
  }

  std::uint32_t latency_ns() const {
    const auto taken = std::chrono::nanoseconds(Clock::now() - begun).count();
    return static_cast<std::uint32_t>(std::min<std::int64_t>(taken, UINT32_MAX));
  }

 private:
  TcpSocket socket;
  std::string_view request;
  std::string_view reply;
  std::size_t sent = 0;
  std::size_t received = 0;
  Clock::time_point begun;
};

class LoadGenerator::Loop {
 public:
  explicit Loop(const LoadPlan& plan)
      : request(plan.request),
        reply(plan.expected_reply),
        epoll(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
        block(reply.size() + 1) {
    connections.reserve(plan.connections);
    for (std::size_t index = 0; index < plan.connections; ++index) {
      connections.emplace_back(plan, request, reply);
      watch(index, EPOLL_CTL_ADD, EPOLLIN);
    }
  }

  LoadResult run(std::chrono::milliseconds duration) {
    latencies.clear();
    const auto begun = Clock::now();
    deadline = begun + duration;
    for (std::size_t index = 0; index < connections.size(); ++index) start(index);
    under_way = connections.size();
    while (under_way > 0) turn();
    const double seconds = std::chrono::duration<double>(Clock::now() - begun).count();
    LoadResult result;
    result.requests = static_cast<double>(latencies.size());
    result.requests_per_second = result.requests / seconds;
    result.p50_us = percentile_us(latencies, 0.5);
    result.p99_us = percentile_us(latencies, 0.99);
    return result;
  }

 private:
  void watch(std::size_t index, int operation, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = index;
    checked(epoll_ctl(epoll.get(), operation, connections[index].descriptor(), &event),
            "epoll_ctl");
  }

  void start(std::size_t index) {
    if (!connections[index].start()) watch(index, EPOLL_CTL_MOD, EPOLLIN | EPOLLOUT);
  }

  void turn() {
    std::array<epoll_event, kEventsAtOnce> events;
    const int count =
        checked(epoll_wait(epoll.get(), events.data(), kEventsAtOnce, kSilenceMs), "epoll_wait");
    if (count == 0) throw std::runtime_error("the server keeps silent");
    for (int position = 0; position < count; ++position) {
      const epoll_event& event = events[static_cast<std::size_t>(position)];
      serve(event.data.u64, event.events);
    }
  }

  void serve(std::size_t index, std::uint32_t events) {
    Connection& connection = connections[index];
    if ((events & EPOLLOUT) != 0 && connection.send_on()) watch(index, EPOLL_CTL_MOD, EPOLLIN);
    if ((events & ~EPOLLOUT) == 0 || !connection.receive_on(block)) return;
    latencies.push_back(connection.latency_ns());
    if (Clock::now() < deadline) {
      start(index);
    } else {
      --under_way;
    }
  }

  const std::string request;
  const std::string reply;
  const UniqueFd epoll;
  std::vector<char> block;  ///< one byte longer than a reply, so that a second one shows
  std::vector<Connection> connections;
  std::vector<std::uint32_t> latencies;
  Clock::time_point deadline;
  std::size_t under_way = 0;
};

LoadGenerator::LoadGenerator(const LoadPlan& plan) : loop(std::make_unique<Loop>(plan)) {}

LoadGenerator::~LoadGenerator() = default;

LoadResult LoadGenerator::run(std::chrono::milliseconds duration) { return loop->run(duration); }
