#pragma once

#include <chrono>

#include "bench/load/measured_server.h"
#include "bench/load/results.h"

/// How much is measured.
struct BenchPlan {
  ServerPrograms programs;
  int rounds = 5;                            ///< every figure is the median of as many values
  std::chrono::milliseconds duration{2000};  ///< of each load
};

/// Connections with a request under way each.
inline constexpr int kConnectionCounts[] = {1, 10, 50, 200};

/// Measures all servers in turn, round by round, each round with servers started anew. Prints
/// progress on standard error. Throws std::runtime_error when a server fails or a reply is wrong.
///
/// Loads are "1", "10", "50" and "200", after their connections; "without", replies that leave
/// their "fid" to the server, at 50 connections; and "large", requests of 100 KB, one under way.
/// Each has the figures "rps", "p50" and "p99" (latency in us) and "cpu" (us of the server for a
/// request), such as "rps 50". Further figures: "start" (ms), "memory" (MB, after all loads, with
/// 200 connections),
/// "helper" (MB), and of a service "idle" and "busy" while a library works, the median and p99 in
/// us of what else it is asked: such as "idle p99 GET". Of the service in whose process that
/// library is, "wait" is how many ms `GET /` takes then.
Results measure(const BenchPlan& plan);

/// What a service is asked while a library works.
inline constexpr const char* kBesideWork[] = {"GET", "getconfig", "other"};
