#include "tests/support/tcp_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <random>
#include <regex>

#include "tests/support/checked.h"
#include "tests/support/eventually.h"
#include "tests/support/files.h"

namespace {

std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> resolve(const std::string& address,
                                                           uint16_t port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
    throw std::runtime_error("no address: " + address);
  return {found, freeaddrinfo};
}

}  // namespace

TcpSocket::TcpSocket(int family)
    : socket(checked(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")) {}

TcpSocket TcpSocket::listen(int backlog, const std::string& address, uint16_t port) {
  const auto place = resolve(address, port);
  TcpSocket listener(place->ai_family);
  checked(::bind(listener.descriptor(), place->ai_addr, place->ai_addrlen), "bind");
  checked(::listen(listener.descriptor(), backlog), "listen");
  return listener;
}

TcpSocket TcpSocket::connect(uint16_t port, const std::string& address) {
  const auto place = resolve(address, port);
  TcpSocket client(place->ai_family);
  const timeval time{kPatience.count(), 0};
  const int no_delay = 1;
  setsockopt(client.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
  setsockopt(client.descriptor(), IPPROTO_TCP, TCP_NODELAY, &no_delay, sizeof no_delay);
  checked(::connect(client.descriptor(), place->ai_addr, place->ai_addrlen), "connect");
  return client;
}

void TcpSocket::start_tls() {
  static const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
      SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  std::signal(SIGPIPE, SIG_IGN);
  tls.reset(SSL_new(context.get()));
  SSL_set_fd(tls.get(), descriptor());
  if (SSL_connect(tls.get()) != 1) throw std::runtime_error("no TLS handshake");
}

uint16_t TcpSocket::local_port() const {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  checked(::getsockname(descriptor(), reinterpret_cast<sockaddr*>(&address), &length),
          "getsockname");
  return ntohs(address.sin_port);
}

void TcpSocket::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t sent = tls ? SSL_write(tls.get(), bytes.data(), static_cast<int>(bytes.size()))
                             : ::send(descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    bytes.remove_prefix(static_cast<size_t>(checked(sent, "send")));
  }
}

std::string TcpSocket::receive_some() const {
  char block[16384];
  if (!tls) return {block, size_t(checked(::recv(descriptor(), block, sizeof block, 0), "recv"))};
  const int size = SSL_read(tls.get(), block, sizeof block);
  if (size <= 0 && SSL_get_error(tls.get(), size) == SSL_ERROR_WANT_READ)
    throw std::runtime_error("nothing came over TLS");
  return {block, static_cast<size_t>(std::max(size, 0))};
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
  // Those that tests have are marked by UDP sockets of the same number, until the test ends.
  static std::vector<UniqueFd> marks;
  for (;;) {
    const uint16_t port = ports(random);
    UniqueFd mark(checked(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    const auto place = resolve("127.0.0.1", port);
    if (::bind(mark.get(), place->ai_addr, place->ai_addrlen) != 0) continue;
    if (sockets_in_kernel(port, "") != 0) continue;
    marks.push_back(std::move(mark));
    return port;
  }
}

size_t sockets_in_kernel(uint16_t port, const std::string& expression) {
  constexpr size_t kLongest = 100;  // bytes of an entry from the local port to the timer
  char local_port[8];
  std::snprintf(local_port, sizeof local_port, ":%04X ", port);
  const std::regex entry(local_port + ("[0-9A-F:]+ " + expression));
  size_t found = 0;
  for (const char* path : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    if (!std::filesystem::exists(path)) continue;  // without IPv6
    const std::string table = read_file(path);
    for (size_t at = 0; (at = table.find(local_port, at)) != std::string::npos; ++at)
      found += std::regex_search(table.substr(at, kLongest), entry) ? 1 : 0;
  }
  return found;
}
