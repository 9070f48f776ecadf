#pragma once

#include <openssl/ssl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "util/handle/unique_fd.h"

/// A blocking TCP socket, by default on 127.0.0.1, closed at the end. Addresses are IPv4 or IPv6.
/// Functions throw std::runtime_error, of which std::system_error is one.
class TcpSocket {
 public:
  /// Listens on a free port. Nobody accepts: with a backlog of 0 the first connection fills the
  /// queue, and a further one gets no answer at all.
  static TcpSocket listen(int backlog, const std::string& address = "127.0.0.1", uint16_t port = 0);
  /// What is received then has to come within kPatience.
  static TcpSocket connect(uint16_t port, const std::string& address = "127.0.0.1");

  /// Makes a TLS client of it, which accepts any certificate. From then on a peer that has gone no
  /// longer signals SIGPIPE to this process.
  void start_tls();

  int descriptor() const { return socket.get(); }  ///< valid as long as this object
  uint16_t local_port() const;
  void send(std::string_view bytes) const;

  /// The bytes that come next; none once the peer has closed the connection.
  std::string receive_some() const;
  /// All bytes until the peer closes the connection.
  std::string receive_until_close() const;

 private:
  explicit TcpSocket(int family);

  UniqueFd socket;
  std::unique_ptr<SSL, decltype(&SSL_free)> tls{nullptr, SSL_free};
};

/// A port of 127.0.0.1 on which nothing listens at the moment, and no other test's as long as this
/// process runs.
uint16_t free_port();

/// Number of sockets with this local port whose entry in the kernel's tables goes on, behind the
/// peer, with a text like the regular expression: state, queues, timer.
size_t sockets_in_kernel(uint16_t port, const std::string& expression);
