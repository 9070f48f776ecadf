#include "libs/helper_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "libs/helper_frames.h"
#include "util/log/log.h"
#include "util/os/program_path.h"

extern char** environ;

namespace {

constexpr char kProgram[] = "quorvel-host";
constexpr int kSendBuffer = 2 * static_cast<int>(kLongestCommandFrame);

void check(int error, const char* what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

/// What happens in the child between its start and that of the program.
class SpawnSetup {
 public:
  explicit SpawnSetup(int socket) {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    check(posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
          "posix_spawn");
    check(posix_spawn_file_actions_adddup2(&actions, socket, kHelperSocket), "posix_spawn");
    check(posix_spawn_file_actions_addclosefrom_np(&actions, kHelperSocket + 1), "posix_spawn");
    check(posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP), "posix_spawn");
  }
  ~SpawnSetup() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

}  // namespace

HelperProcess::HelperProcess(const std::string& path, EventSet& events, EventHandler& handler) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) check(errno, "socketpair");
  socket = UniqueFd(ends[0]);
  const UniqueFd theirs(ends[1]);
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  spawn(path, theirs.get());
  process = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (process.get() < 0) {
    const int error = errno;
    kill();
    waitpid(pid, nullptr, 0);
    check(error, "pidfd_open");
  }
  events.watch(socket.get(), handler);
  events.watch(process.get(), handler);
}

void HelperProcess::spawn(const std::string& path, int theirs) {
  char program[kProgramPathSize];
  if (!getfilepath(program, kProgram)) check(ENAMETOOLONG, kProgram);
  const SpawnSetup setup(theirs);
  std::string name = kProgram;
  std::string library = path;
  std::string parent = std::to_string(getpid());
  std::string charset = is_log_charset_utf8() ? kHelperLogsUtf8 : "";
  char* const arguments[] = {name.data(), library.data(), parent.data(), charset.data(), nullptr};
  check(posix_spawn(&pid, program, &setup.actions, &setup.attributes, arguments, environ), program);
}

HelperProcess::~HelperProcess() {
  if (process.get() < 0 || status()) return;
  kill();
  // A helper that hangs inside the system dies later; its entry then goes with the service.
  wait_until(std::chrono::steady_clock::now() + std::chrono::seconds(1));
  status();
}

bool HelperProcess::send(std::string_view packet) const {
  return ::send(socket.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
         static_cast<ssize_t>(packet.size());
}

HelperProcess::Received HelperProcess::receive(std::string& packet) {
  if (socket.get() < 0) return Received::kNothing;
  packet.resize(kLongestHelperFrame);
  const ssize_t size = recv(socket.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_TRUNC);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return Received::kNothing;
  if (size <= 0 || static_cast<std::size_t>(size) > packet.size()) {
    socket.reset();
    return Received::kClosed;
  }
  packet.resize(static_cast<std::size_t>(size));
  return Received::kPacket;
}

void HelperProcess::kill() const {
  ::kill(-pid, SIGKILL);
  ::kill(pid, SIGKILL);  // also before it has got its group
}

std::optional<int> HelperProcess::status() {
  siginfo_t end{};
  if (!end_status &&
      waitid(P_PID, static_cast<id_t>(pid), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
      end.si_pid == pid) {
    ::kill(-pid, SIGKILL);  // what the library has left behind, while the number is still ours
    int wait_status = 0;
    if (waitpid(pid, &wait_status, 0) == pid) end_status = wait_status;
  }
  return end_status;
}

void HelperProcess::ask_to_end() { socket.reset(); }

void HelperProcess::wait_until(std::chrono::steady_clock::time_point latest) const {
  using std::chrono::milliseconds;
  const auto left =
      std::chrono::duration_cast<milliseconds>(latest - std::chrono::steady_clock::now());
  pollfd end = {process.get(), POLLIN, 0};
  if (left.count() > 0) poll(&end, 1, static_cast<int>(left.count()));
}
