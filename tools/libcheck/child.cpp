#include "tools/libcheck/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "tools/libcheck/fenced_buffer.h"
#include "tools/libcheck/shared_memory.h"
#include "util/handle/unique_fd.h"
#include "util/os/child.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kPrintedSize = 200;

struct Control {
  std::atomic<Clock::rep> call_began;
  char call[64];
  char past_buffer[64];  // the buffer whose end was passed; empty: none
  char reason[512];      // of a broken rule that the child noticed; empty: none
  char cure[256];
  bool finished;
};
static_assert(std::atomic<Clock::rep>::is_always_lock_free);

/// The child's view of what it shares with its parent.
Control* control = nullptr;

template <std::size_t size>
void copy(char (&out)[size], const char* text) {
  std::snprintf(out, size, "%s", text);
}

[[noreturn]] void die_of(int signal_number) {
  signal(signal_number, SIG_DFL);
  raise(signal_number);
  _exit(EXIT_FAILURE);
}

void on_fault(int signal_number, siginfo_t* info, void*) {
  FencedBuffer::describe(info->si_addr, control->past_buffer, sizeof control->past_buffer);
  die_of(signal_number);
}

/// A stack that has overflowed can't run the handler: it gets one of its own.
void catch_faults() {
  static std::array<char, 65536> handler_stack;
  stack_t stack = {};
  stack.ss_sp = handler_stack.data();
  stack.ss_size = handler_stack.size();
  sigaltstack(&stack, nullptr);
  struct sigaction action = {};
  action.sa_sigaction = on_fault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

void settle_in(pid_t parent, int output) {
  settle_as_child(parent);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  catch_faults();
}

[[noreturn]] void be_the_child(pid_t parent, int output, const std::function<void()>& body,
                               Leave leave) {
  settle_in(parent, output);
  try {
    body();
    control->finished = true;
  } catch (const ContractBreak& problem) {
    copy(control->reason, problem.what());
    copy(control->cure, problem.advice().c_str());
  } catch (const std::exception& problem) {
    copy(control->reason, problem.what());
  }
  if (leave == Leave::kThroughExit) {
    begin_call("the end of the process");
    std::exit(EXIT_SUCCESS);
  }
  std::fflush(nullptr);  // what the library printed
  _exit(EXIT_SUCCESS);
}

milliseconds time_left(const Control& child, milliseconds limit) {
  const Clock::duration running =
      Clock::now().time_since_epoch() - Clock::duration(child.call_began);
  return limit - std::chrono::duration_cast<milliseconds>(running);
}

/// Waits for the child as long as each of its calls stays within the limit.
bool ends_in_time(int process, const Control& child, milliseconds limit) {
  for (;;) {
    const milliseconds left = time_left(child, limit);
    if (left.count() <= 0) return false;
    pollfd poller = {process, POLLIN, 0};
    if (poll(&poller, 1, static_cast<int>(left.count())) > 0) return true;
  }
}

std::string seconds(milliseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", static_cast<double>(time.count()) / 1000.0);
  return text;
}

std::string first_output(int output) {
  std::array<char, kPrintedSize> bytes;
  const ssize_t size = pread(output, bytes.data(), bytes.size(), 0);
  return size > 0 ? std::string(bytes.data(), static_cast<std::size_t>(size)) : std::string();
}

void explain_death(int status, const Control& child, ChildEnd& end) {
  if (child.past_buffer[0] != '\0') {
    end.reason = std::string("went past the end of ") + child.past_buffer;
    end.cure = "Bound every access by the sizes in quorvel_reader.h.";
  } else if (WIFSIGNALED(status)) {
    end.reason = describe_end(status);
    end.cure = "Build it with -g -fsanitize=address and check again: the guide says how.";
  } else {
    end.reason = describe_end(status);
    end.cure = "Return 0 with a failure reply: an exit ends the whole service.";
  }
}

}  // namespace

void begin_call(const char* name) {
  copy(control->call, name);
  control->call_began = Clock::now().time_since_epoch().count();
}

ChildEnd run_in_child(milliseconds limit, const std::function<void()>& body, Leave leave) {
  const Shared<Control> shared;
  control = &*shared;
  begin_call("nothing");
  const UniqueFd output(memfd_create("output", MFD_CLOEXEC));
  std::fflush(nullptr);  // or the child would print it again
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid == 0) be_the_child(parent, output.get(), body, leave);

  // Debian 12's header declares pidfd_open without C linkage, so that C++ can't link it.
  const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  const bool in_time = ends_in_time(process.get(), *shared, limit);
  if (!in_time) kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }

  ChildEnd end;
  end.call = shared->call;
  end.printed = first_output(output.get());
  if (!in_time) {
    end.reason = "did not return within " + seconds(limit);
    end.cure = "Limit every wait for the hardware; --timeout allows more.";
  } else if (shared->reason[0] != '\0') {
    end.reason = shared->reason;
    end.cure = shared->cure;
  } else if (shared->finished && WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) {
    end.finished = true;
  } else {
    explain_death(status, *shared, end);
  }
  return end;
}
