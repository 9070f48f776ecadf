#pragma once

#include <algorithm>
#include <chrono>

/// How long a helper is left alone after a start that failed: 1, 2, 4, up to 30 seconds.
class RestartPause {
 public:
  /// The pause before the next start; it doubles with each call.
  std::chrono::seconds next() {
    const std::chrono::seconds pause = coming;
    coming = std::min(2 * coming, kLongest);
    return pause;
  }
  /// Begins anew, once a helper has proved its worth.
  void reset() { coming = kShortest; }

  static constexpr std::chrono::seconds kShortest{1};
  static constexpr std::chrono::seconds kLongest{30};

 private:
  std::chrono::seconds coming = kShortest;
};
