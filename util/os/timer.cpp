#include "util/os/timer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

Timer::Timer() : fd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (fd.get() < 0) throw std::system_error(errno, std::generic_category(), "timerfd_create");
}

void Timer::set_alarm(Clock::time_point time) {
  using std::chrono::nanoseconds;
  using std::chrono::seconds;
  const nanoseconds since_epoch = time.time_since_epoch();
  itimerspec setting{};
  setting.it_value.tv_sec = std::chrono::duration_cast<seconds>(since_epoch).count();
  setting.it_value.tv_nsec = (since_epoch % seconds(1)).count();
  // The standard library's steady clock is the kernel's monotonic one.
  if (timerfd_settime(fd.get(), TFD_TIMER_ABSTIME, &setting, nullptr) != 0)
    throw std::system_error(errno, std::generic_category(), "timerfd_settime");
  alarm = time;
}

void Timer::start(std::chrono::milliseconds delay) {
  due = Clock::now() + delay;
  if (!alarm || *alarm > *due) set_alarm(*due);
}

bool Timer::has_expired() {
  if (!alarm || Clock::now() < *alarm) return false;
  std::uint64_t times = 0;
  (void)!read(fd.get(), &times, sizeof times);  // else the descriptor stays readable
  alarm.reset();
  if (!due) return false;
  if (Clock::now() < *due) {
    set_alarm(*due);
    return false;
  }
  due.reset();
  return true;
}
