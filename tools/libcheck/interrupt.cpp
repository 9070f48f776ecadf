#include "tools/libcheck/interrupt.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "util/handle/unique_fd.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

sigset_t interrupts() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
  return set;
}

/// Readable while one of the signals waits to be noticed. None before take_interrupts().
UniqueFd& interrupt_descriptor() {
  static UniqueFd descriptor;
  return descriptor;
}

/// The longest that one poll may take, in its own terms.
int time_left(Clock::time_point until) {
  const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
  return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 3600000));
}

}  // namespace

void take_interrupts() {
  const sigset_t set = interrupts();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  interrupt_descriptor() = UniqueFd(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

InterruptsAtOnce::InterruptsAtOnce() {
  const sigset_t set = interrupts();
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

InterruptsAtOnce::~InterruptsAtOnce() {
  const sigset_t set = interrupts();
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

bool wait_readable(int descriptor, milliseconds limit) {
  const Clock::time_point until = Clock::now() + limit;
  for (;;) {
    pollfd pollers[] = {{interrupt_descriptor().get(), POLLIN, 0}, {descriptor, POLLIN, 0}};
    const int timeout = limit.count() < 0 ? -1 : time_left(until);
    poll(pollers, 2, timeout);
    signalfd_siginfo signal_info = {};
    if (pollers[0].revents != 0 &&
        read(pollers[0].fd, &signal_info, sizeof signal_info) == sizeof signal_info)
      throw Interrupted(static_cast<int>(signal_info.ssi_signo));
    if (pollers[1].revents != 0) return true;
    if (limit.count() >= 0 && Clock::now() >= until) return false;
  }
}

void end_by_signal(int number) {
  std::signal(number, SIG_DFL);
  const InterruptsAtOnce now;
  std::raise(number);
  std::_Exit(EXIT_FAILURE);
}
