#include "tools/libcheck/resources.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/libcheck/process_state.h"
#include "util/language/language.h"

namespace {

int entries(const char* directory) {
  const std::filesystem::directory_iterator all(directory);
  return static_cast<int>(std::distance(begin(all), end(all)));
}

#ifdef __SANITIZE_ADDRESS__
// The sanitizer keeps memory of its own for every library that is loaded, and finds leaks itself.
constexpr bool kMemoryTells = false;
#else
constexpr bool kMemoryTells = true;
#endif

std::size_t allocated_bytes() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

std::size_t address_space() {
  std::ifstream file("/proc/self/statm");
  std::size_t pages = 0;
  file >> pages;
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

Resources measure_resources() {
  return {entries("/proc/self/fd"), entries("/proc/self/task"),
          static_cast<int>(child_processes().size()), kMemoryTells ? allocated_bytes() : 0,
          kMemoryTells ? address_space() : 0};
}

std::string describe_growth(const Growth& growth, int half) {
  const auto a_round = [&](std::size_t Resources::*bytes) -> std::size_t {
    const std::size_t before = growth.before.*bytes;
    const std::size_t halfway = growth.halfway.*bytes;
    const std::size_t after = growth.after.*bytes;
    if (halfway <= before || after <= halfway) return 0;
    return std::min(halfway - before, after - halfway) / static_cast<std::size_t>(half);
  };
  std::string text;
  const auto add = [&](std::size_t amount, const char* what) {
    if (amount > 0) text += (text.empty() ? "" : ", ") + std::to_string(amount) + translated(what);
  };
  const auto more = [&](int Resources::*count) {
    return static_cast<std::size_t>(std::max(0, growth.after.*count - growth.before.*count));
  };
  add(more(&Resources::descriptors), translatable(" open file descriptors"));
  add(more(&Resources::threads), translatable(" running threads"));
  add(more(&Resources::processes), translatable(" child processes"));
  add(a_round(&Resources::heap_bytes), translatable(" bytes of heap a round"));
  add(a_round(&Resources::mapped_bytes), translatable(" bytes of mapped memory a round"));
  return text;
}

void restart_without_malloc_cache(char** argv) {
  constexpr char kTunables[] = "GLIBC_TUNABLES";
  if (std::getenv(kTunables) != nullptr) return;
  setenv(kTunables, "glibc.malloc.tcache_count=0", 1);
  std::error_code error;
  std::string program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) argv[0] = program.data();
  execv("/proc/self/exe", argv);
  // Goes on where that fails: leaks are still found, if they are large.
}
