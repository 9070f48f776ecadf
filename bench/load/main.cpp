// Measures the service beside a bare server on the same library, a Node.js server, itself in other
// settings and an earlier version.

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "bench/load/report.h"
#include "bench/load/scenarios.h"
#include "tests/support/files.h"

namespace {

constexpr char kUsage[] =
    "usage: quorvel_bench [--quick] [--baseline STAGE] STAGE READER ECHO_SERVER NODE_SERVER "
    "REPORT\n"
    "  STAGE        directory in which the service is installed\n"
    "  READER       the library libbench_reader.so\n"
    "  ECHO_SERVER  the program quorvel_echo_server\n"
    "  NODE_SERVER  server.js, with its packages installed\n"
    "  REPORT       file to which the tables are written\n"
    "  --quick      one short round, which shows that all works and no more\n"
    "  --baseline   directory in which an earlier version is installed\n";

/// False when the arguments are not as they should be.
bool read_arguments(std::vector<std::string> arguments, BenchPlan& plan, std::string& path) {
  auto next = arguments.begin();
  const auto is_option = [&](const char* name) { return next != arguments.end() && *next == name; };
  if (is_option("--quick")) {
    plan.rounds = 1;
    plan.duration = std::chrono::milliseconds(100);
    ++next;
  }
  if (is_option("--baseline") && ++next != arguments.end()) plan.programs.earlier = *next++;
  if (arguments.end() - next != 5) return false;
  ServerPrograms& programs = plan.programs;
  for (auto* place : {&programs.stage, &programs.reader, &programs.bare, &programs.node_main})
    *place = *next++;
  path = *next;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  BenchPlan plan;
  std::string path;
  if (!read_arguments({argv + 1, argv + argc}, plan, path)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  try {
    const std::string text = report(measure(plan));
    std::fputs(text.c_str(), stdout);
    write_file(path, text);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel_bench: %s\n", error.what());
    return 1;
  }
}
