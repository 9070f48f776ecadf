// Runs a fuzz driver over the inputs in the given folders, where every fault ever found stands
// beside the hand-made seeds. A folder may be missing, but not all of them.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/input.h"

namespace {

void replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
  std::fprintf(stderr, "%s, %zu bytes\n", path.c_str(), bytes.size());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int inputs = 0;
  for (const std::filesystem::path folder : std::vector<const char*>(argv + 1, argv + argc)) {
    if (!std::filesystem::exists(folder)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      replay(entry.path());
      ++inputs;
    }
  }
  std::fprintf(stderr, "%d inputs replayed\n", inputs);
  return inputs > 0 ? 0 : 1;
}
