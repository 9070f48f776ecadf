#pragma once

#include <chrono>
#include <optional>

#include "util/handle/unique_fd.h"

/// A timer whose descriptor becomes readable when its time has come, or an earlier one for which it
/// had been started. Starting and stopping it for every call costs no system call: the kernel's
/// alarm is moved when it goes off. Throws std::system_error.
class Timer {
 public:
  Timer();

  int descriptor() const { return fd.get(); }
  /// Starts it anew; `delay` is positive.
  void start(std::chrono::milliseconds delay);
  void stop() { due.reset(); }
  /// Whether its time has come since it was started; tells so once.
  bool has_expired();

 private:
  using Clock = std::chrono::steady_clock;

  void set_alarm(Clock::time_point time);

  UniqueFd fd;
  std::optional<Clock::time_point> due;
  std::optional<Clock::time_point> alarm;  ///< when the descriptor becomes, or became, readable
};
