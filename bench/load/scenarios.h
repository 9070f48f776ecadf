#pragma once

#include <chrono>

#include "bench/load/measured_server.h"
#include "bench/load/results.h"

/// How much is measured.
struct BenchPlan {
  ServerPrograms programs;
  int rounds = 5;                            ///< every figure is the median of as many values
  std::chrono::milliseconds duration{1500};  ///< of each load
};

/// Connections of the series "connections" and places on the axes of the others.
inline constexpr int kConnectionCounts[] = {1, 10, 50, 200};
inline constexpr int kRequestSizes[] = {60, 1000, 10000, 100000};
inline constexpr int kIdleCounts[] = {0, 100, 1000};
inline constexpr int kHeldCounts[] = {0, 99};

/// Requests that show what a reader adds to the cost of a request: one for a reader that writes a
/// constant, one that no reader serves, a short one for the demo reader, and the one that all other
/// series send.
inline constexpr const char* kFunctionRequests[] = {
    R"({"fid":"example.serial"})", R"({"fid":"nosuch"})", R"({"fid":"cardpresent"})",
    R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})"};
inline constexpr int kFunctionConnections = 50;

/// Connections that keep requests under way in the series other than "connections".
inline constexpr int kActiveConnections = 10;

/// Measures all servers in turn, round by round, each round with servers started anew. Prints
/// progress on standard error. Throws std::runtime_error when a server fails or a reply is wrong.
///
/// Series: "start" (metric ms); "connections"; "size_whole" and "size_fragments", by the bytes of a
/// request that comes in one frame or in ten; "idle", by the further connections that do nothing;
/// "held", by those of 99 further connections that have sent half a message; "function", by
/// the place in kFunctionRequests, without the Node.js server. Loads have the metrics rps, p50_us,
/// p99_us, cpu_us (CPU time of the server for a request) and generator (the share of a core that
/// the load generator used); "connections" has resident_mb and anonymous_mb too.
Results measure(const BenchPlan& plan);
