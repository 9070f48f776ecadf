#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <thread>

/// A TCP port of 127.0.0.1 that accepts every connection and closes it at once: the target of the
/// service's reachability check. Has a thread of its own.
class ProbeTarget {
 public:
  /// Throws boost::system::system_error.
  ProbeTarget();
  ProbeTarget(const ProbeTarget&) = delete;
  ProbeTarget& operator=(const ProbeTarget&) = delete;
  ~ProbeTarget();

  std::uint16_t port() const { return acceptor.local_endpoint().port(); }

 private:
  void accept_next();

  boost::asio::io_context loop{1};
  boost::asio::ip::tcp::acceptor acceptor;
  std::thread thread;
};
