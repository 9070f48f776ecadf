#include "bench/load/report.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "bench/load/scenarios.h"
#include "tests/support/files.h"
#include "util/text/format.h"

namespace {

constexpr int kTargetConnections = 50;
constexpr double kLeastOfBare = 0.85;
constexpr double kMostOfBareP99 = 1.2;
constexpr double kLeastOfNode = 3;
constexpr double kMostMegabytesOverBare = 2;
/// Growth below this can't be told from the spread of the measurement.
constexpr double kVisibleGrowth = 1.1;

using Key = Results::Key;

struct Column {
  const char* title;
  const char* metric;
  int decimals;
};

constexpr Column kLoadColumns[] = {
    {"requests/s", "rps", 0},       {"p50 us", "p50_us", 0}, {"p99 us", "p99_us", 0},
    {"generator", "generator", 2},  {"CPU us", "cpu_us", 1}, {"resident MB", "resident_mb", 1},
    {"anon. MB", "anonymous_mb", 1}};

bool has(const Results& results, const Key& key) { return results.all().count(key) != 0; }

/// Prints one line for each place on the series' axis and each server.
void print_table(const Results& results, const char* series, const char* axis, const char* title) {
  std::printf("\n%s\n%12s %-8s", title, axis, "server");
  bool titled = false;
  for (const auto& [key, values] : results.all()) {
    if (key.series != series || key.metric != "rps") continue;
    std::string line;
    for (const Column& column : kLoadColumns) {
      const Key figure{series, key.x, key.server, column.metric};
      if (!has(results, figure)) continue;
      if (!titled) std::printf(" %12s", column.title);
      line += format_text(" %12.*f", column.decimals, results.median(figure));
    }
    if (!titled) std::printf("\n");
    titled = true;
    std::printf("%12d %-8s%s\n", key.x, server_name(key.server), line.c_str());
  }
}

void print_target(const char* target, bool met, double reached) {
  std::printf("%-6s %-72s %8.2f\n", met ? "met" : "MISSED", target, reached);
}

void print_figure(const char* figure, double reached) {
  std::printf("%-6s %-72s %8.2f\n", "", figure, reached);
}

double of_service(const Results& results, ServerKind other, const char* metric) {
  return results.ratio({"connections", kTargetConnections, ServerKind::kService, metric},
                       {"connections", kTargetConnections, other, metric});
}

/// How many times the CPU time of a request at the start of an axis it takes at the end.
double growth(const Results& results, ServerKind kind, const char* series, int start, int end) {
  return results.ratio({series, end, kind, "cpu_us"}, {series, start, kind, "cpu_us"});
}

double megabytes_over_bare(const Results& results) {
  double most = -1e9;
  for (const int x : kConnectionCounts) {
    const auto resident = [&](ServerKind kind) {
      return results.median({"connections", x, kind, "resident_mb"});
    };
    most = std::max(most, resident(ServerKind::kService) - resident(ServerKind::kBare));
  }
  return most;
}

}  // namespace

void print_tables(const Results& results) {
  int number = 0;
  std::printf("\nStart-up to the first reply\n");
  for (const ServerKind kind : kServerKinds)
    std::printf("%12s %8.1f ms\n", server_name(kind), results.median({"start", 0, kind, "ms"}));
  print_table(results, "connections", "connections", "Connections with a request under way each");
  print_table(results, "idle", "idle", "10 connections, and others that do nothing");
  print_table(results, "held", "held",
              "1 connection, requests in 2 frames; of 99 others some hold half a message");
  print_table(results, "size_whole", "bytes", "10 connections, by size of the request, in 1 frame");
  print_table(results, "size_fragments", "bytes",
              "10 connections, by size of the request, in 10 frames");
  print_table(results, "function", "request", "50 connections, by request:");
  for (const char* request : kFunctionRequests) std::printf("%12d %s\n", number++, request);
}

void print_targets(const Results& results) {
  std::printf("\nTargets\n");
  const double of_bare = of_service(results, ServerKind::kBare, "rps");
  print_target("requests/s at 50 connections, of the bare server's: at least 0.85",
               of_bare >= kLeastOfBare, of_bare);
  const double p99 = of_service(results, ServerKind::kBare, "p99_us");
  print_target("p99 latency at 50 connections, of the bare server's: at most 1.2",
               p99 <= kMostOfBareP99, p99);
  print_figure("  its CPU time for a request, of the bare server's",
               of_service(results, ServerKind::kBare, "cpu_us"));
  const auto of_service_alone = [&](const char* metric) {
    return results.ratio({"function", 0, ServerKind::kService, metric},
                         {"function", 0, ServerKind::kBare, metric});
  };
  print_figure("  with a reader that writes a constant: requests/s, of the bare server's",
               of_service_alone("rps"));
  print_figure("  with a reader that writes a constant: CPU time, of the bare server's",
               of_service_alone("cpu_us"));
  const double of_node = of_service(results, ServerKind::kNode, "rps");
  print_target("requests/s at 50 connections, of the Node.js server's: at least 3",
               of_node >= kLeastOfNode, of_node);
  const double megabytes = megabytes_over_bare(results);
  print_target("resident memory above the bare server's, in MB: at most 2",
               megabytes <= kMostMegabytesOverBare, megabytes);
  const double idle = growth(results, ServerKind::kService, "idle", 0, 1000);
  const double bare_idle = growth(results, ServerKind::kBare, "idle", 0, 1000);
  print_target("CPU time with 1,000 idle connections, times that with none: below 1.1",
               idle < kVisibleGrowth, idle);
  print_target("  of the bare server's growth: below 1.1", idle / bare_idle < kVisibleGrowth,
               idle / bare_idle);
  const double held = growth(results, ServerKind::kService, "held", 0, 99);
  print_target("CPU time with 99 table entries held, times that with none: below 1.1",
               held < kVisibleGrowth, held);
}

void write_figures(const Results& results, const std::filesystem::path& path) {
  std::string lines;
  for (const auto& [key, values] : results.all()) {
    lines += key.series + "\t" + std::to_string(key.x) + "\t" + server_name(key.server) + "\t" +
             key.metric + "\t" + std::to_string(results.median(key)) + "\n";
  }
  write_file(path, lines);
}
