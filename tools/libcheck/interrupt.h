#pragma once

#include <chrono>
#include <csignal>
#include <exception>

/// The user has asked the program to end, with Ctrl-C or by a signal.
class Interrupted : public std::exception {
 public:
  explicit Interrupted(int number) : signal_number(number) {}
  int number() const { return signal_number; }
  const char* what() const noexcept override { return "interrupted"; }

 private:
  int signal_number;
};

/// From here on SIGINT, SIGTERM and SIGHUP are noticed where the program waits, and nowhere else,
/// so that it can put things in order first.
void take_interrupts();

/// While it lives these signals end the program at once, for a wait that is not one of those below.
class InterruptsAtOnce {
 public:
  InterruptsAtOnce();
  ~InterruptsAtOnce();
  InterruptsAtOnce(const InterruptsAtOnce&) = delete;
  InterruptsAtOnce& operator=(const InterruptsAtOnce&) = delete;
};

/// Waits until `descriptor` has something to read or has ended, at most for `limit`; one below 0 is
/// never ready, and a negative limit never over. Whether it is ready. Throws Interrupted.
bool wait_readable(int descriptor, std::chrono::milliseconds limit);

/// Ends the program as that signal does.
[[noreturn]] void end_by_signal(int number);
