#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>

/// The helper processes of a service, one for each isolated library, and the times in which not all
/// of them were well. May be used by several threads.
class Helpers {
 public:
  /// The service runs, and as many helpers as are given.
  Helpers(pid_t service_process, std::size_t helper_count)
      : service(service_process), count(helper_count) {}

  /// A point of time, for well_since().
  unsigned now() const { return moment; }
  /// Whether all have been well from that time until now.
  bool well_since(unsigned then) const { return then % 2 == 0 && then == moment; }

  /// Kills one of them, the `choice`-th, and with `successor_too` the one that is started in its
  /// place as soon as it shows. Returns once `wait_until_well` has. Threads take turns. Throws
  /// std::runtime_error when there are more or fewer helpers than there should be.
  void kill_one(std::size_t choice, bool successor_too,
                const std::function<void()>& wait_until_well);

 private:
  const pid_t service;
  const std::size_t count;
  std::mutex turn;
  std::atomic<unsigned> moment{0};  ///< odd from a kill until all are well again
};
