#pragma once

#include "tests/support/tcp_socket.h"

/// A WebSocket connection down at its socket, for loads whose cost must stay far below the server's
/// and for what no WebSocket library would send: it speaks the opening handshake and leaves frames
/// to its user. Closed at the end without a closing handshake.
class WsSocket : public TcpSocket {
 public:
  /// Connects and upgrades with sub-protocol "ws". Throws std::system_error, or
  /// std::runtime_error when the server refuses.
  explicit WsSocket(uint16_t port, const std::string& host = "127.0.0.1");
};
