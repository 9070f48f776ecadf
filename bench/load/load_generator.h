#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

/// First byte of a frame that is a whole text message.
inline constexpr unsigned char kWholeTextFrame = 0x81;

/// What a closed-loop load does: each connection sends its request, waits for the reply and sends
/// the next request at once.
struct LoadPlan {
  std::uint16_t port = 0;
  std::size_t connections = 1;
  bool websocket = true;       ///< connections are upgraded; else they speak plain HTTP
  std::string request;         ///< as it stands on the wire, like the reply
  std::string expected_reply;  ///< the same for every request
};

struct LoadResult {
  double requests = 0;
  double requests_per_second = 0;
  /// Latency from the call that sends the request's first byte until its reply is complete.
  double p50_us = 0;
  double p99_us = 0;
};

/// Opens the connections of a plan and keeps them until it is destroyed. Used from one thread.
class LoadGenerator {
 public:
  /// Throws as connect_ws(). `plan` must outlive the object.
  explicit LoadGenerator(const LoadPlan& plan);
  LoadGenerator(const LoadGenerator&) = delete;
  LoadGenerator& operator=(const LoadGenerator&) = delete;
  ~LoadGenerator();

  /// Runs the load for `duration`, then lets the requests under way end. Throws
  /// std::runtime_error when a reply is not the expected one or a connection ends; the object is
  /// of no use then.
  LoadResult run(std::chrono::milliseconds duration);

 private:
  class Connection;
  class Loop;
  std::unique_ptr<Loop> loop;
};
