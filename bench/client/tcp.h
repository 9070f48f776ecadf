#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// A TCP socket on 127.0.0.1, closed at the end. Functions throw std::system_error.
class TcpSocket {
 public:
  /// Listens on a free port. Nobody accepts: with a backlog of 0 the first connection fills the
  /// queue, and a further one gets no answer at all.
  static TcpSocket listen(int backlog);
  static TcpSocket connect(uint16_t port);

  TcpSocket(TcpSocket&& other) noexcept;
  TcpSocket(const TcpSocket&) = delete;
  TcpSocket& operator=(const TcpSocket&) = delete;
  TcpSocket& operator=(TcpSocket&&) = delete;
  ~TcpSocket();

  uint16_t local_port() const;
  void send(std::string_view bytes) const;

  /// All bytes until the peer closes the connection. Throws when it keeps silent for a minute.
  std::string receive_until_close() const;

 private:
  TcpSocket();

  int descriptor;
};

/// A port of 127.0.0.1 on which nothing listens at the moment.
uint16_t free_port();
