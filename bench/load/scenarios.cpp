#include "bench/load/scenarios.h"

#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/load/load_generator.h"
#include "tests/support/ws_client.h"
#include "tests/support/ws_frame.h"
#include "tests/support/ws_socket.h"

namespace {

constexpr char kRequestStart[] = R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"})";
constexpr std::size_t kPieces = 10;
constexpr int kOtherConnections = 99;  // one entry of the table is left for the load itself
constexpr int kFunctionIndices[] = {0, 1, 2, 3};
static_assert(std::size(kFunctionIndices) == std::size(kFunctionRequests));
constexpr std::chrono::milliseconds kWarmUp(200);
constexpr double kMicroseconds = 1e6;

constexpr unsigned char kText = 0x01;
constexpr unsigned char kContinuation = 0x00;
constexpr unsigned char kFinal = 0x80;

/// The request, filled up to a size with a member that the reader passes over.
std::string request_text(std::size_t size = 0) {
  std::string text = kRequestStart;
  constexpr std::string_view kPad = R"(,"x":")";
  const std::size_t least = text.size() + kPad.size() + 2;
  if (size >= least) text.append(kPad).append(size - least, 'x') += '"';
  return text += '}';
}

std::string frames(std::string_view text, std::size_t pieces) {
  std::string wire;
  for (std::size_t piece = 0; piece < pieces; ++piece) {
    const std::size_t begin = text.size() * piece / pieces;
    const std::size_t end = text.size() * (piece + 1) / pieces;
    const unsigned opcode = piece == 0 ? kText : kContinuation;
    const unsigned head = opcode | (piece + 1 == pieces ? kFinal : 0U);
    wire += masked_frame(static_cast<unsigned char>(head), text.substr(begin, end - begin));
  }
  return wire;
}

/// One round with one server.
class Round {
 public:
  Round(const BenchPlan& bench_plan, ServerKind server_kind, const MeasuredServer& measured,
        Results& collected)
      : plan(bench_plan), kind(server_kind), server(measured), results(collected) {}

  void connections(int count) { load("connections", count, count, frames(request_text(), 1)); }

  void whole(int size) {
    const std::string text = request_text(static_cast<std::size_t>(size));
    load("size_whole", size, kActiveConnections, frames(text, 1));
  }

  void fragments(int size) {
    const std::string text = request_text(static_cast<std::size_t>(size));
    load("size_fragments", size, kActiveConnections, frames(text, kPieces));
  }

  void idle(int count) {
    const auto others = open_others(count);
    load("idle", count, kActiveConnections, frames(request_text(), 1));
  }

  void function(int index) {
    const char* text = kFunctionRequests[index];
    load("function", index, kFunctionConnections, frames(text, 1),
         WsClient(server.port()).ask(text));
  }

  void held(int count) {
    const auto others = open_others(kOtherConnections);
    for (int index = 0; index < count; ++index)
      others[static_cast<std::size_t>(index)].send(masked_frame(kText, kRequestStart));
    load("held", count, 1, frames(request_text(), 2));
  }

 private:
  std::vector<WsSocket> open_others(int count) const {
    std::vector<WsSocket> others;
    others.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) others.emplace_back(server.port());
    return others;
  }

  void load(const char* series, int x, int connection_count, const std::string& wire) {
    load(series, x, connection_count, wire, server.first_reply());
  }

  void load(const char* series, int x, int connection_count, const std::string& wire,
            const std::string& reply) {
    LoadPlan load_plan;
    load_plan.port = server.port();
    load_plan.connections = static_cast<std::size_t>(connection_count);
    load_plan.request = wire;
    load_plan.expected_reply = reply;
    LoadGenerator generator(load_plan);
    generator.run(kWarmUp);
    const double cpu_before = server.cpu_seconds();
    const LoadResult result = generator.run(plan.duration);
    const auto add = [&](const char* metric, double value) {
      results.add({series, x, kind, metric}, value);
    };
    add("rps", result.requests_per_second);
    add("p50_us", result.p50_us);
    add("p99_us", result.p99_us);
    add("generator", result.generator_share);
    add("cpu_us", kMicroseconds * (server.cpu_seconds() - cpu_before) / result.requests);
    if (std::string_view(series) != "connections") return;
    const Memory memory = server.memory();
    add("resident_mb", memory.resident_mb);
    add("anonymous_mb", memory.anonymous_mb);
  }

  const BenchPlan& plan;
  ServerKind kind;
  const MeasuredServer& server;
  Results& results;
};

using Servers = std::vector<std::unique_ptr<MeasuredServer>>;

Servers start_servers(const BenchPlan& plan, Results& results) {
  use_server_cpu();
  Servers servers;
  std::string reply;
  for (const ServerKind kind : kServerKinds) {
    servers.push_back(std::make_unique<MeasuredServer>(kind, plan.programs, request_text(), reply));
    reply = servers.back()->first_reply();
    results.add({"start", 0, kind, "ms"}, servers.back()->start_ms());
  }
  use_generator_cpu();
  return servers;
}

/// Lets every server take its turn at every place of an axis.
template <typename Axis>
void in_turn(std::vector<Round>& rounds, const Axis& axis, void (Round::*scenario)(int)) {
  for (const int x : axis)
    for (Round& round : rounds) (round.*scenario)(x);
}

}  // namespace

Results measure(const BenchPlan& plan) {
  Results results;
  for (int number = 1; number <= plan.rounds; ++number) {
    std::fprintf(stderr, "round %d of %d\n", number, plan.rounds);
    const Servers servers = start_servers(plan, results);
    std::vector<Round> rounds;
    for (std::size_t index = 0; index < servers.size(); ++index)
      rounds.emplace_back(plan, kServerKinds[index], *servers[index], results);
    // Memory is read in the first series, while it shows that series' load alone.
    in_turn(rounds, kConnectionCounts, &Round::connections);
    in_turn(rounds, kIdleCounts, &Round::idle);
    in_turn(rounds, kHeldCounts, &Round::held);
    in_turn(rounds, kRequestSizes, &Round::whole);
    in_turn(rounds, kRequestSizes, &Round::fragments);
    rounds.pop_back();  // the Node.js server's
    in_turn(rounds, kFunctionIndices, &Round::function);
  }
  return results;
}
