#include "bench/load/report.h"

#include <cstdio>
#include <string>

#include "bench/load/scenarios.h"
#include "util/text/format.h"

namespace {

constexpr ServerKind kService = ServerKind::kService;
constexpr ServerKind kBare = ServerKind::kBare;
constexpr ServerKind kIsolated = ServerKind::kIsolated;
constexpr ServerKind kEarlier = ServerKind::kEarlier;

/// Growth below this can't be told from the spread of the measurement.
constexpr double kSame = 1.2;

class TargetTable {
 public:
  explicit TargetTable(const Results& measured) : results(measured) {}

  /// `format` takes a figure, such as "%.2f".
  void at_least(const std::string& title, const char* format, double limit, double reached) {
    add(title, "at least", format, limit, reached, reached >= limit);
  }
  void at_most(const std::string& title, const char* format, double limit, double reached) {
    add(title, "at most", format, limit, reached, reached <= limit);
  }
  /// Of the earlier version's figure, which there may be none of.
  void at_most_of_earlier(const std::string& title, const std::string& figure, double limit) {
    if (results.has(figure, kEarlier)) {
      at_most(title, "%.2f", limit, results.ratio(figure, kService, figure, kEarlier));
    } else {
      text += format_text("| %s | – | at most %.2f | not measured: no earlier version |\n",
                          title.c_str(), limit);
    }
  }

  std::string text = "| Target | Reached | Limit | |\n|---|---:|---:|---|\n";

 private:
  void add(const std::string& title, const char* bound, const char* format, double limit,
           double reached, bool met) {
    const auto printed = [format](double value) {
      char number[32];
      std::snprintf(number, sizeof number, format, value);  // NOLINT: formats of this file
      return std::string(number);
    };
    text += "| " + title + " | " + printed(reached) + " | " + bound + " " + printed(limit) + " | " +
            (met ? "met" : "**missed**") + " |\n";
  }

  const Results& results;
};

void add_load_targets(TargetTable& table, const Results& results) {
  const double least[] = {0.95, 0.85, 0.90, 0.90};
  const double* limit = least;
  for (const int count : kConnectionCounts) {
    const std::string figure = "rps " + std::to_string(count);
    table.at_least("requests/s at " + std::to_string(count) +
                       (count == 1 ? " connection" : " connections") + ", of the bare server's",
                   "%.2f", *limit++, results.ratio(figure, kService, figure, kBare));
  }
  table.at_most("p99 latency at 50, of the bare server's", "%.2f", 1.15,
                results.ratio("p99 50", kService, "p99 50", kBare));
  table.at_least("requests/s at 50, replies without \"fid\", of the bare server's", "%.2f", 0.75,
                 results.ratio("rps without", kService, "rps 50", kBare));
  table.at_least("requests/s at 50, default log level, of the bare server's", "%.2f", 0.85,
                 results.ratio("rps 50", ServerKind::kLogging, "rps 50", kBare));
  table.at_most_of_earlier("CPU time of a 100 KB request, of the earlier version's", "cpu large",
                           0.6);
  table.at_most("resident memory after all loads, at 200 connections, over the bare server's",
                "%+.1f MB", 1, results.difference("memory", kService, kBare));
  table.at_most_of_earlier("start to first reply, of the earlier version's", "start", 0.5);
}

void add_isolation_targets(TargetTable& table, const Results& results) {
  for (const char* what : kBesideWork) {
    for (const char* percentile : {"p50", "p99"}) {
      const std::string asked = std::string(what) == "GET"     ? "`GET /`"
                                : std::string(what) == "other" ? "a request to another library"
                                                               : "\"getconfig\"";
      const std::string figure = std::string(percentile) + " " + what;
      table.at_most(asked + " while an isolated library works: " + percentile +
                        " latency, of the idle service's",
                    "%.2f", kSame,
                    results.ratio("busy " + figure, kIsolated, "idle " + figure, kIsolated));
    }
  }
  table.at_most("one request isolated, over in-process", "%+.0f µs", 40,
                results.difference("p50 1", kIsolated, kService));
  table.at_least("requests/s at 50 isolated, of in-process", "%.2f", 0.5,
                 results.ratio("rps 50", kIsolated, "rps 50", kService));
  table.at_most("resident memory of a helper with the demo library", "%.1f MB", 3,
                results.median("helper", kIsolated));
}

/// One line for each figure, one column for each server; a dash where it was not measured.
std::string figure_table(const Results& results) {
  static constexpr struct {
    const char* title;
    const char* figure;
    int decimals;
  } kRows[] = {
      {"requests/s at 1 connection", "rps 1", 0},
      {"at 10", "rps 10", 0},
      {"at 50", "rps 50", 0},
      {"at 200", "rps 200", 0},
      {"at 50, replies without \"fid\"", "rps without", 0},
      {"median latency at 1, µs", "p50 1", 0},
      {"p99 latency at 50, µs", "p99 50", 0},
      {"CPU time of a request at 1, µs", "cpu 1", 1},
      {"at 50, µs", "cpu 50", 1},
      {"at 50, reply without \"fid\", µs", "cpu without", 1},
      {"of 100 KB, µs", "cpu large", 0},
      {"resident memory after all loads, at 200, MB", "memory", 1},
      {"start to first reply, ms", "start", 1},
      {"`GET /` while a library works, idle service, p50 µs", "idle p50 GET", 0},
      {"busy service, µs", "busy p50 GET", 0},
      {"library in-process, ms", "wait", 0},
  };
  std::string text = "| |";
  std::string rule = "|---|";
  for (const ServerKind kind : kServerKinds) {
    text += std::string(" ") + server_name(kind) + " |";
    rule += "---:|";
  }
  text += "\n" + rule + "\n";
  for (const auto& row : kRows) {
    text += std::string("| ") + row.title + " |";
    for (const ServerKind kind : kServerKinds) {
      text += results.has(row.figure, kind)
                  ? format_text(" %.*f |", row.decimals, results.median(row.figure, kind))
                  : " |";
    }
    text += "\n";
  }
  return text;
}

}  // namespace

std::string report(const Results& results) {
  TargetTable targets(results);
  add_load_targets(targets, results);
  add_isolation_targets(targets, results);
  return targets.text + "\n" + figure_table(results);
}
