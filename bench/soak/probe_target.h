#pragma once

#include <cstdint>
#include <thread>

#include "tests/support/tcp_socket.h"

/// A TCP port of 127.0.0.1 that accepts every connection and closes it at once: the target of the
/// service's reachability check. Has a thread of its own.
class ProbeTarget {
 public:
  /// Throws std::system_error.
  ProbeTarget();
  ProbeTarget(const ProbeTarget&) = delete;
  ProbeTarget& operator=(const ProbeTarget&) = delete;
  ~ProbeTarget();

  std::uint16_t port() const { return listener.local_port(); }

 private:
  const TcpSocket listener = TcpSocket::listen(64);
  std::thread thread;
};
