#pragma once

#include <chrono>

#include "util/handle/unique_fd.h"

/// A timer whose descriptor becomes readable when its time has come. Throws std::system_error.
class Timer {
 public:
  Timer();

  int descriptor() const { return fd.get(); }
  /// Starts it anew; `delay` is positive.
  void start(std::chrono::milliseconds delay);
  void stop();
  /// Whether its time has come since it was started; tells so once.
  bool has_expired();

 private:
  void set(std::chrono::milliseconds delay) const;

  UniqueFd fd;
};
