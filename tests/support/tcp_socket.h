#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// A blocking TCP socket, by default on 127.0.0.1, closed at the end. Addresses are IPv4 or IPv6.
/// Functions throw std::system_error.
class TcpSocket {
 public:
  /// Listens on a free port. Nobody accepts: with a backlog of 0 the first connection fills the
  /// queue, and a further one gets no answer at all.
  static TcpSocket listen(int backlog);
  static TcpSocket listen(int backlog, const std::string& address, uint16_t port);
  /// What is received then has to come within a minute.
  static TcpSocket connect(uint16_t port, const std::string& address = "127.0.0.1");

  TcpSocket(TcpSocket&& other) noexcept;
  TcpSocket(const TcpSocket&) = delete;
  TcpSocket& operator=(const TcpSocket&) = delete;
  TcpSocket& operator=(TcpSocket&&) = delete;
  ~TcpSocket();

  int descriptor() const { return socket; }  ///< valid as long as this object
  uint16_t local_port() const;
  void send(std::string_view bytes) const;

  /// The bytes that come next; none once the peer has closed the connection.
  std::string receive_some() const;
  /// All bytes until the peer closes the connection.
  std::string receive_until_close() const;

 private:
  explicit TcpSocket(int family);

  int socket;
};

/// A port of 127.0.0.1 on which nothing listens at the moment.
uint16_t free_port();
