#include "server/listening.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "util/handle/unique_fd.h"

namespace {

/// Above every descriptor that the service has at its start.
constexpr int kDescriptorsSearched = 1024;

/// The port of a socket of either family, which stands in the same place for both.
int port_of(const sockaddr_storage& address) {
  sockaddr_in place{};
  std::memcpy(&place, &address, sizeof place);
  return ntohs(place.sin_port);
}

/// Listens for a moment as the service does, on all addresses. 0, or the number of the error.
int try_to_listen(int family, int port) {
  const UniqueFd socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return errno;
  const int yes = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_storage any{};
  any.ss_family = static_cast<sa_family_t>(family);
  const in_port_t network_port = htons(static_cast<in_port_t>(port));
  std::memcpy(reinterpret_cast<char*>(&any) + offsetof(sockaddr_in, sin_port), &network_port,
              sizeof network_port);
  const socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&any), size) != 0 ||
      listen(socket.get(), 1) != 0)
    return errno;
  return 0;
}

}  // namespace

bool kernel_has_ipv6() {
  const UniqueFd socket(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return socket.get() >= 0 || errno != EAFNOSUPPORT;
}

bool listens_on(int port) {
  for (int fd = 0; fd < kDescriptorsSearched; ++fd) {
    int accepts = 0;
    socklen_t size = sizeof accepts;
    sockaddr_storage address{};
    socklen_t address_size = sizeof address;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &accepts, &size) == 0 && accepts != 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &address_size) == 0 &&
        port_of(address) == port)
      return true;
  }
  return false;
}

std::string listening_fault(int port) {
  const int error = try_to_listen(kernel_has_ipv6() ? AF_INET6 : AF_INET, port);
  const std::string subject = "port " + std::to_string(port);
  if (error == EADDRINUSE)
    return subject +
           " is taken: end the program that has it, or set [SERVER] localport in "
           "quorvel_service.ini to a free port";
  if (error == EACCES)
    return subject +
           " may not be opened by this user: set [SERVER] localport in quorvel_service.ini to a "
           "port above 1023, or give the service the right";
  return subject + " can't be opened: " + (error != 0 ? std::strerror(error) : "see above");
}
