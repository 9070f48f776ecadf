// Measures the service beside a bare server on the same library and a Node.js server.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "bench/load/report.h"
#include "bench/load/scenarios.h"

namespace {

constexpr char kUsage[] =
    "usage: quorvel_bench [--quick] STAGE READER ECHO_SERVER NODE_SERVER FIGURES\n"
    "  STAGE        directory in which the service is installed\n"
    "  READER       the library of the reader that writes a constant\n"
    "  ECHO_SERVER  the program quorvel_echo_server\n"
    "  NODE_SERVER  server.js, with its packages installed\n"
    "  FIGURES      file to which all figures are written\n"
    "  --quick      one short round, which shows that all works and no more\n";

}  // namespace

int main(int argc, char** argv) {
  BenchPlan plan;
  int first = 1;
  if (argc > 1 && std::strcmp(argv[1], "--quick") == 0) {
    plan.rounds = 1;
    plan.duration = std::chrono::milliseconds(100);
    first = 2;
  }
  if (argc - first != 5) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  plan.programs = {argv[first], argv[first + 1], argv[first + 2], argv[first + 3]};
  try {
    const Results results = measure(plan);
    print_tables(results);
    print_targets(results);
    write_figures(results, argv[first + 4]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel_bench: %s\n", error.what());
    return 1;
  }
}
