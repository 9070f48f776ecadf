#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// Handed one input by the fuzzer or by the replay program; a fault ends the process. Always 0.
// NOLINTNEXTLINE(readability-identifier-naming): libFuzzer's name
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the process, which counts as a fault found, unless `condition` holds.
inline void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "violated: %s\n", what);
  std::abort();
}

/// One fuzzer input, taken apart from its front. Past its end there are zeros and empty texts.
/// `data` must outlive the object.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : left(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return left.empty(); }
  std::uint8_t byte() {
    const std::string taken = take(1);
    return taken.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(taken[0]);
  }
  /// The bytes up to the next NUL, which is passed over.
  std::string text() {
    std::string taken = take(left.substr(0, left.find('\0')).size());
    take(1);
    return taken;
  }
  std::string rest() { return take(left.size()); }

 private:
  std::string take(std::size_t count) {
    std::string taken(left.substr(0, count));
    left.remove_prefix(taken.size());
    return taken;
  }

  std::string_view left;
};
