#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/eventually.h"

struct WsOptions {
  bool tls = false;                ///< any certificate is accepted
  std::string host = "127.0.0.1";  ///< the header; the connection always goes to 127.0.0.1
  std::string origin;              ///< the header; none when empty
  std::vector<std::string> alpn;   ///< protocols offered in the TLS handshake, first choice first
  std::chrono::seconds limit = kPatience;  ///< how long each operation may take
};

/// One WebSocket connection with sub-protocol "ws" to a service on 127.0.0.1. Operations throw
/// std::runtime_error when the service breaks the protocol, ends the connection or keeps the client
/// waiting; the connection is of no use then. Used from one thread at a time.
class WsClient {
 public:
  /// Connects and upgrades.
  explicit WsClient(uint16_t port, const WsOptions& options = {});
  WsClient(WsClient&&) noexcept;
  WsClient& operator=(WsClient&&) noexcept;
  WsClient(const WsClient&) = delete;
  WsClient& operator=(const WsClient&) = delete;
  ~WsClient();  ///< closes the TCP connection without a closing handshake

  void send(std::string_view text) { send_piece(text, true); }
  void send_binary(std::string_view bytes);

  /// Sends one piece of a text message, the last one with `final`.
  void send_piece(std::string_view piece, bool final);
  void send_fragments(const std::vector<std::string>& pieces);

  /// Sends bytes past the WebSocket layer, in one write; over TLS up to 16,384 bytes travel in one
  /// record.
  void send_raw(std::string_view bytes);

  /// The next message, its fragments joined; it has to be a text message.
  std::string receive();

  /// send() and receive().
  std::string ask(std::string_view request);

  /// Sends a ping and waits for its pong. Messages that come before it stay for receive().
  void ping();

  /// Closing handshake. With a reply due it may wait in vain: Beast takes that for its own then.
  void close();
  void vanish();  ///< ends the TCP connection with a reset

  /// The protocol agreed on in the TLS handshake; empty when none was.
  std::string alpn() const;

 private:
  class Connection;

  std::unique_ptr<Connection> connection;
};
