#include "util/os/child.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

void settle_signals() {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void settle_as_child(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(EXIT_FAILURE);
  settle_signals();
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
}

std::string describe_end(int status) {
  if (!WIFSIGNALED(status))
    return "ended the process with exit status " + std::to_string(WEXITSTATUS(status));
  const char* name = sigabbrev_np(WTERMSIG(status));
  return std::string("crashed with SIG") + (name != nullptr ? name : "?");
}
