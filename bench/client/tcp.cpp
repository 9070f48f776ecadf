#include "bench/client/tcp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <random>
#include <system_error>
#include <utility>

namespace {

constexpr time_t kSilenceSeconds = 60;

template <typename Result>
Result checked(Result result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

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
    : descriptor(checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {
  const timeval limit{kSilenceSeconds, 0};
  checked(::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), "setsockopt");
}

TcpSocket::TcpSocket(TcpSocket&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)) {}

TcpSocket::~TcpSocket() {
  if (descriptor >= 0) ::close(descriptor);
}

TcpSocket TcpSocket::listen(int backlog) {
  TcpSocket socket;
  sockaddr_in address = loopback(0);
  checked(::bind(socket.descriptor, general(address), sizeof address), "bind");
  checked(::listen(socket.descriptor, backlog), "listen");
  return socket;
}

TcpSocket TcpSocket::connect(uint16_t port) {
  TcpSocket socket;
  sockaddr_in address = loopback(port);
  checked(::connect(socket.descriptor, general(address), sizeof address), "connect");
  return socket;
}

uint16_t TcpSocket::local_port() const {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  checked(::getsockname(descriptor, general(address), &length), "getsockname");
  return ntohs(address.sin_port);
}

void TcpSocket::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const auto sent = checked(::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
}

std::string TcpSocket::receive_until_close() const {
  std::string text;
  std::array<char, 4096> block{};
  for (;;) {
    const auto received = checked(::recv(descriptor, block.data(), block.size(), 0), "recv");
    if (received == 0) return text;
    text.append(block.data(), static_cast<size_t>(received));
  }
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
