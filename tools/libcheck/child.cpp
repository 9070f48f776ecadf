#include "tools/libcheck/child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "tools/libcheck/fenced_buffer.h"
#include "tools/libcheck/interrupt.h"
#include "tools/libcheck/process_state.h"
#include "tools/libcheck/shared_memory.h"
#include "util/handle/unique_fd.h"
#include "util/language/language.h"
#include "util/os/child.h"
#include "util/text/format.h"
#include "util/text/utf8.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kPrintedSize = 200;
/// For what the library has started in the background and what ends by itself.
constexpr milliseconds kOrphanGrace(100);

struct Control {
  std::atomic<Clock::rep> call_began;
  char call[64];
  char past_buffer[64];  // the buffer whose end was passed; empty: none
  std::size_t past_size;
  char reason[512];  // of a broken rule that the child noticed; empty: none
  char cure[256];
  bool finished;
};
static_assert(std::atomic<Clock::rep>::is_always_lock_free);

/// The child's view of what it shares with its parent.
Control* control = nullptr;

/// What does not fit is left out, by whole characters of UTF-8.
template <std::size_t size>
void copy(char (&out)[size], const char* text) {
  out[cut_utf8({text, strnlen(text, size)}, size - 1).copy(out, size)] = '\0';
}

[[noreturn]] void die_of(int signal_number) {
  signal(signal_number, SIG_DFL);
  raise(signal_number);
  _exit(EXIT_FAILURE);
}

void on_fault(int signal_number, siginfo_t* info, void*) {
  FencedBuffer::describe(info->si_addr, control->past_buffer, sizeof control->past_buffer,
                         control->past_size);
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
    begin_call(translated("the end of the process"));
    std::exit(EXIT_SUCCESS);
  }
  std::fflush(nullptr);  // what the library printed
  _exit(EXIT_SUCCESS);
}

/// One child process, which ends with the object at the latest, and so does what the library has
/// started in it: that would run on behind the check's back.
class Child {
 public:
  /// `be_it` does not return.
  explicit Child(const std::function<void()>& be_it) : pid(fork()) {
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (pid == 0) be_it();
    // Debian 12's header declares pidfd_open without C linkage, so that C++ can't link it.
    process = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  }
  ~Child() {
    if (pid > 0) end();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// How many processes it had left running when it was ended.
  int orphans() const { return left_running; }

  /// Readable once it has ended.
  int descriptor() const { return process.get(); }

  /// Ends it if it still runs; once. Its wait status.
  int end() {
    int status = 0;
    kill(pid, SIGKILL);
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    pid = 0;
    left_running = end_orphans(kOrphanGrace);
    return status;
  }

 private:
  /// Ends what still runs after the grace. Returns how many those were.
  int end_orphans(milliseconds grace) const {
    const Clock::time_point deadline = Clock::now() + grace;
    for (int ended = 0;;) {
      const bool late = Clock::now() >= deadline;
      bool waits = false;
      bool killed = false;
      for (const pid_t orphan : child_processes()) {
        if (std::find(others.begin(), others.end(), orphan) != others.end()) continue;
        if (waitpid(orphan, nullptr, WNOHANG) == orphan) continue;
        waits = true;
        if (!late || kill(orphan, SIGKILL) != 0 || waitpid(orphan, nullptr, 0) != orphan) continue;
        killed = true;
        ++ended;
      }
      if (!waits || (late && !killed)) return ended;
      if (!late) std::this_thread::sleep_for(milliseconds(5));
    }
  }

  const std::vector<pid_t> others = child_processes();  // not ours to end
  pid_t pid;
  int left_running = 0;
  UniqueFd process;
};

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
    if (wait_readable(process, left)) return true;
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
    end.reason = format_text(translated("went past the end of %s (%zu bytes)"), child.past_buffer,
                             child.past_size);
    end.cure = translated("Bound every access by the sizes in quorvel_reader.h.");
  } else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGBUS && end.call == "dlopen") {
    end.reason = describe_end(status);
    end.cure = translated("The file is cut short, or was written meanwhile: build it again.");
  } else if (WIFSIGNALED(status)) {
    end.reason = describe_end(status);
    end.cure =
        translated("Build it with -g -fsanitize=address and check again: the guide says how.");
  } else {
    end.reason = describe_end(status);
    end.cure = translated("Return 0 with a failure reply: an exit ends the whole service.");
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
  begin_call(translated("nothing"));
  const UniqueFd output(memfd_create("output", MFD_CLOEXEC));
  std::fflush(nullptr);  // or the child would print it again
  const pid_t parent = getpid();
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // orphans become this process's children, to be ended
  Child child([&] { be_the_child(parent, output.get(), body, leave); });
  const bool in_time = ends_in_time(child.descriptor(), *shared, limit);
  const int status = child.end();

  ChildEnd end;
  end.call = shared->call;
  end.printed = first_output(output.get());
  end.orphans = child.orphans();
  if (!in_time) {
    end.reason = format_text(translated("did not return within %s"), seconds(limit).c_str());
    end.cure = translated("Limit every wait for the hardware; --timeout allows more.");
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
