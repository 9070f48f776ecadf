#include "tests/support/tcp_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <utility>

#include "tests/support/checked.h"
#include "tests/support/eventually.h"

namespace {

struct Address {
  sockaddr_storage storage{};
  socklen_t size = 0;

  Address(const std::string& text, uint16_t port) {
    sockaddr_in ipv4{};
    sockaddr_in6 ipv6{};
    ipv4.sin_port = ipv6.sin6_port = htons(port);
    if (inet_pton(ipv4.sin_family = AF_INET, text.c_str(), &ipv4.sin_addr) == 1) {
      std::memcpy(&storage, &ipv4, size = sizeof ipv4);
    } else if (inet_pton(ipv6.sin6_family = AF_INET6, text.c_str(), &ipv6.sin6_addr) == 1) {
      std::memcpy(&storage, &ipv6, size = sizeof ipv6);
    }
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

}  // namespace

TcpSocket::TcpSocket(int family)
    : socket(checked(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {}

TcpSocket::TcpSocket(TcpSocket&& other) noexcept : socket(std::exchange(other.socket, -1)) {}

TcpSocket::~TcpSocket() {
  if (socket >= 0) ::close(socket);
}

TcpSocket TcpSocket::listen(int backlog) { return listen(backlog, "127.0.0.1", 0); }

TcpSocket TcpSocket::listen(int backlog, const std::string& text, uint16_t port) {
  const Address address(text, port);
  TcpSocket socket(address.storage.ss_family);
  checked(::bind(socket.descriptor(), address.get(), address.size), "bind");
  checked(::listen(socket.descriptor(), backlog), "listen");
  return socket;
}

TcpSocket TcpSocket::connect(uint16_t port, const std::string& text) {
  const Address address(text, port);
  TcpSocket socket(address.storage.ss_family);
  const timeval limit{kPatience.count(), 0};
  const int no_delay = 1;
  const auto set = [&](int level, int option, const auto& value) {
    checked(::setsockopt(socket.descriptor(), level, option, &value, sizeof value), "setsockopt");
  };
  set(SOL_SOCKET, SO_RCVTIMEO, limit);
  set(IPPROTO_TCP, TCP_NODELAY, no_delay);
  checked(::connect(socket.descriptor(), address.get(), address.size), "connect");
  return socket;
}

uint16_t TcpSocket::local_port() const {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  checked(::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
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
