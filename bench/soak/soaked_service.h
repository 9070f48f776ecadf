#pragma once

#include <cstddef>
#include <filesystem>

#include "bench/soak/helpers.h"
#include "bench/soak/probe_target.h"
#include "bench/soak/traffic.h"
#include "tests/support/daemon_process.h"
#include "tests/support/service_folder.h"

/// An installed service with the demo library in its own process and two isolated ones, and what
/// traffic has to know of it.
class SoakedService {
 public:
  /// Starts it; `stage` is the folder in which it is installed. Throws std::runtime_error.
  explicit SoakedService(const std::filesystem::path& stage);

  const SoakTarget& target() const { return traffic_target; }
  Helpers& helpers() { return helper_processes; }
  const ChildProcess& process() { return daemon.process(); }

  /// Waits until it has no more descriptors than before the first connection; false when that takes
  /// too long.
  bool gives_back_descriptors();

  /// Ends it and returns its exit status.
  int stop() { return daemon.stop(); }

 private:
  const ProbeTarget one;
  const ProbeTarget two;
  const ServiceFolder folder;
  SoakTarget traffic_target;
  DaemonProcess daemon;
  Helpers helper_processes;
  const std::size_t idle_descriptors;
};
