#include "util/log/output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "util/handle/unique_fd.h"
#include "util/text/format.h"

namespace {

/// systemd names the journal's socket by device and inode; a descriptor that leads elsewhere, as
/// after a redirection, has another.
bool is_named_as_journal(const struct stat& status) {
  const char* name = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe): one thread
  return name != nullptr &&
         name == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

bool open_anew(int descriptor) {
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const UniqueFd own(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return own.get() >= 0 && dup2(own.get(), descriptor) >= 0;
}

/// Ends a system call of this thread that blocks, after a moment and again, while it lives.
class Interrupter {
 public:
  Interrupter() {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // no SA_RESTART: the call is to return
    sigaction(SIGALRM, &action, &handler_before);
    const itimerval soon = {{0, kPatienceUs}, {0, kPatienceUs}};
    setitimer(ITIMER_REAL, &soon, &timer_before);
  }
  ~Interrupter() {
    setitimer(ITIMER_REAL, &timer_before, nullptr);
    sigaction(SIGALRM, &handler_before, nullptr);
  }
  Interrupter(const Interrupter&) = delete;
  Interrupter& operator=(const Interrupter&) = delete;

 private:
  static constexpr suseconds_t kPatienceUs = 10000;

  struct sigaction handler_before {};
  itimerval timer_before{};
};

/// Number of bytes for which there was room on a descriptor that blocks. Room for one byte is no
/// room for a line, and another process may be quicker, so the write is interrupted if need be.
std::size_t write_guarded(int descriptor, std::string_view bytes) {
  pollfd room = {descriptor, POLLOUT, 0};
  if (poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0) return 0;
  const Interrupter interrupter;
  const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
  return written > 0 ? static_cast<std::size_t>(written) : 0;
}

}  // namespace

void Output::settle() {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return;
  journal = is_named_as_journal(status);
  if (S_ISSOCK(status.st_mode)) {
    kind = Kind::kSocket;
  } else if (S_ISFIFO(status.st_mode) || (S_ISCHR(status.st_mode) && isatty(descriptor) != 0)) {
    // Somebody else's terminal or pipe can't be opened.
    kind = open_anew(descriptor) ? Kind::kPlain : Kind::kGuarded;
  }
}

void Output::write(std::string_view line) {
  flush();
  if (lost_lines > 0 || !try_write(line)) ++lost_lines;
}

void Output::flush() {
  if (lost_lines == 0) {
    send_rest();
  } else if (try_write(
                 format_text(journal ? "<4>%u lines lost\n" : "%u lines lost\n", lost_lines))) {
    lost_lines = 0;
  }
}

/// False when not even the line's beginning was written. Its end, if there is no room for that, is
/// written before the next line.
bool Output::try_write(std::string_view line) {
  if (!send_rest()) return false;
  const std::size_t written = write_some(line);
  if (written == 0) return line.empty();
  rest = line.substr(written);
  send_rest();
  return true;
}

bool Output::send_rest() {
  while (!rest.empty()) {
    const std::size_t written = write_some(rest);
    if (written == 0) return false;
    rest.erase(0, written);
  }
  return true;
}

/// Number of bytes for which there was room.
std::size_t Output::write_some(std::string_view bytes) const {
  ssize_t written = 0;
  do {
    if (kind == Kind::kSocket) {
      written = send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    } else if (kind == Kind::kGuarded) {
      return write_guarded(descriptor, bytes);
    } else {
      written = ::write(descriptor, bytes.data(), bytes.size());
    }
  } while (written < 0 && errno == EINTR);
  return written > 0 ? static_cast<std::size_t>(written) : 0;
}
