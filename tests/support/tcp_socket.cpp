#include "tests/support/tcp_socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <utility>

#include "tests/support/checked.h"
#include "tests/support/eventually.h"

namespace {

/// The socket calls take every kind of address by a pointer to the general one.
sockaddr* general(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

TcpSocket::TcpSocket()
    : socket(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {}

TcpSocket::TcpSocket(TcpSocket&& other) noexcept : socket(std::exchange(other.socket, -1)) {}

TcpSocket::~TcpSocket() {
  if (socket >= 0) ::close(socket);
}

TcpSocket TcpSocket::listen(int backlog) {
  TcpSocket socket;
  sockaddr_in address = loopback(0);
  checked(::bind(socket.descriptor(), general(address), sizeof address), "bind");
  checked(::listen(socket.descriptor(), backlog), "listen");
  return socket;
}

TcpSocket TcpSocket::connect(uint16_t port) {
  TcpSocket socket;
  sockaddr_in address = loopback(port);
  const timeval limit{kPatience.count(), 0};
  const int no_delay = 1;
  const auto set = [&](int level, int option, const auto& value) {
    checked(::setsockopt(socket.descriptor(), level, option, &value, sizeof value), "setsockopt");
  };
  set(SOL_SOCKET, SO_RCVTIMEO, limit);
  set(IPPROTO_TCP, TCP_NODELAY, no_delay);
  checked(::connect(socket.descriptor(), general(address), sizeof address), "connect");
  return socket;
}

uint16_t TcpSocket::local_port() const {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  checked(::getsockname(socket, general(address), &length), "getsockname");
  return ntohs(address.sin_port);
}

void TcpSocket::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const auto sent = checked(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
}

std::string TcpSocket::receive_some() const {
  char block[4096];
  return {block, static_cast<size_t>(checked(::recv(socket, block, sizeof block, 0), "recv"))};
}

std::string TcpSocket::receive_until_close() const {
  std::string bytes;
  for (std::string some = receive_some(); !some.empty(); some = receive_some()) bytes += some;
  return bytes;
}

uint16_t free_port() {
  // Below those that the kernel gives to outgoing connections: one of another test would else have
  // the port while a service is stopped and started again on it.
  std::uniform_int_distribution<uint16_t> ports(10000, 32000);
  std::random_device random;
  for (;;) {
    const uint16_t port = ports(random);
    try {
      TcpSocket::connect(port);
    } catch (const std::system_error&) {
      return port;
    }
  }
}
