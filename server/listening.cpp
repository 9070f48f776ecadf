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

constexpr ListeningPlace kLoopback{"127.0.0.1", AF_INET};
constexpr ListeningPlace kLoopback6{"::1", AF_INET6};

/// A socket's address, of either family. The port stands in the same place for both.
struct SocketAddress {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;

  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
  int port() const {
    sockaddr_in place{};
    std::memcpy(&place, &storage, sizeof place);
    return ntohs(place.sin_port);
  }
};

SocketAddress make_address(const ListeningPlace& place, int port) {
  SocketAddress made;
  made.storage.ss_family = static_cast<sa_family_t>(place.family);
  const bool is_ipv4 = place.family == AF_INET;
  char* bytes = reinterpret_cast<char*>(&made.storage);
  const in_port_t network_port = htons(static_cast<in_port_t>(port));
  std::memcpy(bytes + offsetof(sockaddr_in, sin_port), &network_port, sizeof network_port);
  if (place.address != nullptr)
    inet_pton(
        place.family, place.address,
        bytes + (is_ipv4 ? offsetof(sockaddr_in, sin_addr) : offsetof(sockaddr_in6, sin6_addr)));
  made.size = is_ipv4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  return made;
}

/// Listens for a moment as the service does. 0, or the number of the error.
int try_to_listen(const ListeningPlace& place, int port) {
  const UniqueFd socket(::socket(place.family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return errno;
  const int yes = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  SocketAddress address = make_address(place, port);
  if (bind(socket.get(), address.get(), address.size) != 0 || listen(socket.get(), 1) != 0)
    return errno;
  return 0;
}

bool kernel_has_ipv6() {
  const UniqueFd socket(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return socket.get() >= 0 || errno != EAFNOSUPPORT;
}

/// False also where IPv6 is switched off for the loopback interface.
bool kernel_has_ipv6_loopback() {
  const int error = try_to_listen(kLoopback6, 0);
  return error != EAFNOSUPPORT && error != EADDRNOTAVAIL;
}

std::string fault_of(const ListeningPlace& place, int port, int error) {
  std::string subject = "port " + std::to_string(port);
  if (place.address != nullptr) subject.append(" of ").append(place.address);
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

}  // namespace

std::vector<ListeningPlace> listening_places(bool loopback_alone) {
  if (!loopback_alone) return {{nullptr, kernel_has_ipv6() ? AF_INET6 : AF_INET}};
  std::vector<ListeningPlace> places = {kLoopback};
  if (kernel_has_ipv6_loopback()) places.push_back(kLoopback6);
  return places;
}

bool listens_on(const ListeningPlace& place, int port) {
  const SocketAddress wanted = make_address(place, port);
  for (int fd = 0; fd < kDescriptorsSearched; ++fd) {
    int accepts = 0;
    socklen_t size = sizeof accepts;
    SocketAddress address;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &accepts, &size) == 0 && accepts != 0 &&
        getsockname(fd, address.get(), &address.size) == 0 && address.port() == port &&
        (place.address == nullptr ||
         std::memcmp(&address.storage, &wanted.storage, wanted.size) == 0))
      return true;
  }
  return false;
}

std::string listening_fault(const std::vector<ListeningPlace>& places, int port) {
  std::string fault;
  for (const ListeningPlace& place : places) {
    const int error = try_to_listen(place, port);
    if (error != 0 || fault.empty()) fault = fault_of(place, port, error);
    if (error != 0) break;
  }
  return fault;
}
