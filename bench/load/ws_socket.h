#pragma once

#include <cstdint>
#include <string_view>

/// A WebSocket connection to a server on 127.0.0.1 down at its socket, for loads whose cost must
/// stay far below the server's: it speaks the opening handshake and leaves frames to its user.
/// Closed at the end without a closing handshake.
class WsSocket {
 public:
  /// Connects and upgrades with sub-protocol "ws". Throws std::system_error, or
  /// std::runtime_error when the server refuses.
  explicit WsSocket(std::uint16_t port);
  WsSocket(WsSocket&& other) noexcept;
  WsSocket(const WsSocket&) = delete;
  WsSocket& operator=(const WsSocket&) = delete;
  WsSocket& operator=(WsSocket&&) = delete;
  ~WsSocket();

  /// Valid as long as this object; blocking until make_nonblocking().
  int descriptor() const { return socket; }
  void make_nonblocking() const;

  /// Sends all bytes, waiting where needed. Throws std::system_error. PRECONDITION: blocking.
  void send(std::string_view bytes) const;

 private:
  void upgrade() const;

  int socket;
};
