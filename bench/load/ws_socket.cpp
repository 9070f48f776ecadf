#include "bench/load/ws_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace {

template <typename Result>
Result checked(Result result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

int connected_socket(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int socket = checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  const int on = 1;
  if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) {
    const int error = errno;
    close(socket);
    throw std::system_error(error, std::generic_category(), "connect");
  }
  return socket;
}

}  // namespace

WsSocket::WsSocket(std::uint16_t port) : socket(connected_socket(port)) {
  try {
    upgrade();
  } catch (...) {
    close(socket);
    throw;
  }
}

WsSocket::WsSocket(WsSocket&& other) noexcept : socket(std::exchange(other.socket, -1)) {}

WsSocket::~WsSocket() {
  if (socket >= 0) close(socket);
}

void WsSocket::make_nonblocking() const {
  checked(fcntl(socket, F_SETFL, checked(fcntl(socket, F_GETFL), "fcntl") | O_NONBLOCK), "fcntl");
}

void WsSocket::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const auto sent = checked(::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

void WsSocket::upgrade() const {
  send(
      "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
      "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Protocol: ws\r\n"
      "Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n");
  // The server sends nothing after its response until it is asked, so this reads no frame.
  std::string response;
  char block[1024];
  while (response.find("\r\n\r\n") == std::string::npos) {
    const auto received = checked(recv(socket, block, sizeof block, 0), "recv");
    if (received == 0) throw std::runtime_error("the server closed the connection");
    response.append(block, static_cast<std::size_t>(received));
  }
  if (response.rfind("HTTP/1.1 101", 0) != 0)
    throw std::runtime_error("the server refused the upgrade: " + response);
}
