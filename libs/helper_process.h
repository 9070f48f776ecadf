#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "util/handle/unique_fd.h"
#include "util/os/event_set.h"

/// A helper process, which holds one reader library for the service, and the socket to it. It has
/// none of the service's descriptors but the three standard ones, is the head of a process group of
/// its own, and dies with the service.
class HelperProcess {
 public:
  /// Starts the helper program for the library at `path`. The descriptors that tell of its packets
  /// and of its end are watched for `handler`. Throws std::system_error.
  HelperProcess(const std::string& path, EventSet& events, EventHandler& handler);
  /// Ends it, and what it has started, at once.
  ~HelperProcess();
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  /// Sends one packet; false when the helper does not take it.
  bool send(std::string_view packet) const;

  enum class Received { kPacket, kNothing, kClosed };
  /// Takes the next packet, up to `packet`'s size; a longer one counts as closed. Once closed, no
  /// more packets come.
  Received receive(std::string& packet);

  /// Sends SIGKILL to it and to what it has started. Its end is told later.
  void kill() const;

  /// Its wait status once it has ended; tells so again and again.
  std::optional<int> status();

  /// Lets the library give back what it holds, and the helper end.
  void ask_to_end();
  /// Waits for its end.
  void wait_until(std::chrono::steady_clock::time_point latest) const;

 private:
  void spawn(const std::string& path, int socket);

  pid_t pid = -1;
  UniqueFd socket;
  UniqueFd process;  ///< readable once the helper has ended
  std::optional<int> end_status;
};
