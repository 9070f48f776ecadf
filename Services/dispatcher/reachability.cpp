#include "Services/dispatcher/reachability.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "util/handle/unique_fd.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"
#include "util/text/text_buffer.h"

namespace {

constexpr int kRetryBudget = 30;
constexpr int kLastStep = 256;  // steps of the schedule double from 1 to this
constexpr int kLastPausedStep = 128;
constexpr unsigned kPauseUnitUs = 250;

bool turn_is_free = true;

int change_flags(int fd, int set, int clear) {
  const int flags = fcntl(fd, F_GETFL, 0);
  if (flags < 0) return -1;
  return fcntl(fd, F_SETFL, (flags | set) & ~clear) < 0 ? -1 : 0;
}

sockaddr_in socket_address(const char* ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = inet_addr(ip);
  return address;
}

}  // namespace

void begin_check_pass() { turn_is_free = true; }

bool take_check_turn() { return std::exchange(turn_is_free, false); }

int set_socket_nonblock(int fd) { return change_flags(fd, O_NONBLOCK, 0); }

int set_socket_block(int fd) { return change_flags(fd, 0, O_NONBLOCK); }

bool connect_retry(int fd, const sockaddr* addr, unsigned int alen, int budget, char* errmsg,
                   std::size_t size) {
  if (set_socket_nonblock(fd) != 0)
    return fail_with({errmsg, size}, GbkView("set socket mode Fail."));
  int spent = 0;
  for (int step = 1; step <= kLastStep; step *= 2) {
    // The first call starts the connection; later ones tell whether it stands, or start it again
    // after a refusal.
    if (connect(fd, addr, alen) == 0) return set_socket_block(fd) == 0;
    spent += step;
    if (spent > budget) break;
    if (step <= kLastPausedStep) usleep(static_cast<unsigned>(step) * kPauseUnitUs);
  }
  set_socket_block(fd);
  errno = ETIME;
  return false;
}

bool socket_conn(const char* ip, int port, unsigned char* errmsg, std::size_t size) {
  const TextBuffer reason(reinterpret_cast<char*>(errmsg), size);
  try {
    const sockaddr_in address = socket_address(ip, port);
    const UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) return fail_with(reason, messages::kNoSocket);
    if (connect_retry(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address,
                      kRetryBudget, reason.data, reason.size))
      return true;
    return fail_with(reason, format_gbk(messages::kNoConnection, gbk_of(ip), port));
  } catch (...) {
    return fail_with(reason,
                     current_exception_text(messages::kCheckException, messages::kCheckFailed));
  }
}
