#include "util/os/timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

Timer::Timer() : fd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (fd.get() < 0) throw std::system_error(errno, std::generic_category(), "timerfd_create");
}

void Timer::set(std::chrono::milliseconds delay) const {
  constexpr long kNanosecondsInAMillisecond = 1000000;
  itimerspec setting{};
  setting.it_value.tv_sec = delay.count() / 1000;
  setting.it_value.tv_nsec = delay.count() % 1000 * kNanosecondsInAMillisecond;
  if (timerfd_settime(fd.get(), 0, &setting, nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "timerfd_settime");
}

void Timer::start(std::chrono::milliseconds delay) { set(delay); }

void Timer::stop() { set(std::chrono::milliseconds(0)); }

bool Timer::has_expired() {
  std::uint64_t times = 0;
  return read(fd.get(), &times, sizeof times) == static_cast<ssize_t>(sizeof times);
}
