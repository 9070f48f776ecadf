#include "bench/load/scenarios.h"

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/load/load_generator.h"
#include "tests/support/tcp_socket.h"
#include "tests/support/ws_client.h"
#include "tests/support/ws_frame.h"

namespace {

constexpr char kCardRequest[] = R"({"fid":"bench.card","data":{"itype":3,"bae140":"3"}})";
constexpr char kWithoutRequest[] = R"({"fid":"bench.without","data":{"itype":3,"bae140":"3"}})";
constexpr char kWorkRequest[] = R"({"fid":"bench.work"})";
constexpr char kOtherRequest[] = R"({"fid":"cardpresent"})";
constexpr char kConfigRequest[] = R"({"fid":"getconfig"})";
constexpr char kPageRequest[] = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";

constexpr std::size_t kLargeSize = 100000;
constexpr int kLargeConnections = 1;
constexpr int kManyConnections = 50;
constexpr int kMostConnections = 200;
constexpr int kStarts = 5;  // of each server in a round, since one alone says little
constexpr std::chrono::milliseconds kWarmUp(200);
/// Of each load beside a library that works: all of them end before it does.
constexpr std::chrono::milliseconds kBesideDuration(700);
constexpr std::chrono::milliseconds kMargin(20);
constexpr double kMicroseconds = 1e6;
constexpr double kMicrosecondsPerMillisecond = 1e3;

std::string frame(std::string_view text) { return masked_frame(kWholeTextFrame, text); }

/// The request with a member that the reader passes over.
std::string large_request() {
  std::string text = kCardRequest;
  text.resize(text.size() - 2);
  text += R"(,"x":")";
  text.append(kLargeSize - text.size() - 3, 'x');
  return text += R"("}})";
}

/// One round.
class Round {
 public:
  Round(const BenchPlan& bench_plan, Results& collected) : plan(bench_plan), results(collected) {
    for (int count = 0; count < kStarts; ++count) {
      for (const ServerKind kind : kServerKinds)
        if (kind != ServerKind::kEarlier || !plan.programs.earlier.empty()) start(kind);
    }
    use_generator_cpu();
  }

  void run() {
    for (const int count : kConnectionCounts)
      if (count != kMostConnections) load_all(count);
    load(ServerKind::kIsolated, "1", 1, kCardRequest);
    for (const ServerKind kind :
         {ServerKind::kIsolated, ServerKind::kLogging, ServerKind::kEarlier})
      load(kind, std::to_string(kManyConnections), kManyConnections, kCardRequest);
    for (const ServerKind kind : {ServerKind::kService, ServerKind::kNode})
      load(kind, "without", kManyConnections, kWithoutRequest);
    for (const ServerKind kind :
         {ServerKind::kService, ServerKind::kBare, ServerKind::kNode, ServerKind::kEarlier})
      load(kind, "large", kLargeConnections, large_request());
    load_all(kMostConnections);  // last, since memory is read while its connections stand
    results.add("helper", ServerKind::kIsolated,
                servers.at(ServerKind::kIsolated)->helper_resident_mb());
    beside_isolated();
    beside_in_process();
  }

 private:
  void start(ServerKind kind) {
    servers.erase(kind);
    use_server_cpu();
    auto& server = servers[kind] =
        std::make_unique<MeasuredServer>(kind, plan.programs, kCardRequest, card);
    if (card.empty()) card = server->first_reply();
    results.add("start", kind, server->start_ms());
  }

  void load_all(int connections) {
    for (const ServerKind kind : {ServerKind::kService, ServerKind::kBare, ServerKind::kNode})
      load(kind, std::to_string(connections), connections, kCardRequest);
  }

  LoadPlan load_plan(ServerKind kind, const std::string& text) {
    LoadPlan load_plan;
    load_plan.port = servers.at(kind)->port();
    load_plan.request = frame(text);
    load_plan.expected_reply = unmasked_frame(kWholeTextFrame, WsClient(load_plan.port).ask(text));
    return load_plan;
  }

  void load(ServerKind kind, const std::string& name, int connections, const std::string& text) {
    if (servers.count(kind) == 0) return;
    const MeasuredServer& server = *servers.at(kind);
    LoadPlan what = load_plan(kind, text);
    what.connections = static_cast<std::size_t>(connections);
    if (name != "without" && what.expected_reply != unmasked_frame(kWholeTextFrame, card))
      throw std::runtime_error(std::string(server_name(kind)) + " answers: " + what.expected_reply);
    LoadGenerator generator(what);
    generator.run(kWarmUp);
    const double cpu_before = server.cpu_seconds();
    const LoadResult result = generator.run(plan.duration);
    const double cpu_us = kMicroseconds * (server.cpu_seconds() - cpu_before) / result.requests;
    results.add("rps " + name, kind, result.requests_per_second);
    results.add("p50 " + name, kind, result.p50_us);
    results.add("p99 " + name, kind, result.p99_us);
    results.add("cpu " + name, kind, cpu_us);
    if (connections == kMostConnections) results.add("memory", kind, server.resident_mb());
  }

  LoadPlan page_plan(ServerKind kind) {
    LoadPlan plan_of_page;
    plan_of_page.port = servers.at(kind)->port();
    plan_of_page.websocket = false;
    plan_of_page.request = kPageRequest;
    plan_of_page.expected_reply = first_page(plan_of_page.port);
    return plan_of_page;
  }

  /// What the server sends for the page, up to its last byte.
  static std::string first_page(std::uint16_t port) {
    const TcpSocket socket = TcpSocket::connect(port);
    socket.send(kPageRequest);
    std::string page;
    while (page.find("</html>\n") == std::string::npos) {
      const std::string more = socket.receive_some();
      if (more.empty()) throw std::runtime_error("no page: " + page);
      page += more;
    }
    return page;
  }

  void beside(const char* when) {
    constexpr ServerKind kKind = ServerKind::kIsolated;
    const LoadPlan plans[] = {page_plan(kKind), load_plan(kKind, kConfigRequest),
                              load_plan(kKind, kOtherRequest)};
    std::size_t index = 0;
    for (const char* what : kBesideWork) {
      const LoadResult result = LoadGenerator(plans[index++]).run(kBesideDuration);
      results.add(std::string(when) + " p50 " + what, kKind, result.p50_us);
      results.add(std::string(when) + " p99 " + what, kKind, result.p99_us);
    }
  }

  void beside_isolated() {
    beside("idle");
    const MeasuredServer& server = *servers.at(ServerKind::kIsolated);
    WsClient client(server.port());
    client.send(kWorkRequest);
    beside("busy");
    const auto measured = std::chrono::steady_clock::now();
    require_work_done(client);
    if (std::chrono::steady_clock::now() - measured < kMargin)
      throw std::runtime_error("the library's work ended before the measurement");
  }

  void beside_in_process() {
    WsClient client(servers.at(ServerKind::kService)->port());
    LoadGenerator generator(page_plan(ServerKind::kService));
    client.send(kWorkRequest);
    const LoadResult result = generator.run(std::chrono::milliseconds(0));
    results.add("wait", ServerKind::kService, result.p50_us / kMicrosecondsPerMillisecond);
    require_work_done(client);
  }

  static void require_work_done(WsClient& client) {
    const std::string reply = client.receive();
    if (reply.find(R"("result":"true")") == std::string::npos)
      throw std::runtime_error("the library's work failed: " + reply);
  }

  const BenchPlan& plan;
  Results& results;
  std::map<ServerKind, std::unique_ptr<MeasuredServer>> servers;
  std::string card;  ///< the reply to kCardRequest
};

}  // namespace

Results measure(const BenchPlan& plan) {
  Results results;
  for (int number = 1; number <= plan.rounds; ++number) {
    std::fprintf(stderr, "round %d of %d\n", number, plan.rounds);
    Round(plan, results).run();
  }
  return results;
}
