#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/eventually.h"

/// No message came, or the connection ended; what() says which.
class WsFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct WsOptions {
  bool tls = false;                ///< any certificate is accepted
  std::string host = "127.0.0.1";  ///< the header; the connection always goes to 127.0.0.1
  std::string origin;              ///< the header; none when empty
  std::vector<std::string> alpn;   ///< protocols offered in the TLS handshake, first choice first
  std::chrono::seconds limit = kPatience;  ///< how long each operation may take
};

/// One WebSocket connection with sub-protocol "ws" to a service on 127.0.0.1. After a WsFailure
/// the connection is not usable. Used from one thread at a time; objects are independent.
class WsClient {
 public:
  /// Connects and upgrades. Throws WsFailure, like every other operation.
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

  /// The next message, its fragments joined.
  std::string receive();
  bool last_was_text() const { return text_message; }

  /// send() and receive().
  std::string ask(std::string_view request);

  /// Sends a ping and waits for its pong. Messages that come before it stay for receive().
  void ping();

  void close();   ///< closing handshake
  void vanish();  ///< ends the TCP connection with a reset

  /// The protocol agreed on in the TLS handshake; empty when none was.
  std::string alpn() const;

 private:
  class Connection;

  std::unique_ptr<Connection> connection;
  bool text_message = false;  ///< the last message received was a text message
};
