#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/service_folder.h"

/// The service running as a daemon in a ServiceFolder. The daemon leaves its launcher, so this
/// program becomes the reaper of orphans and adopts it: its exit status can be collected.
/// The destructor kills the daemon. Start daemons from one thread at a time.
class DaemonProcess {
 public:
  /// Starts the service and returns when the launching process has ended. Standard output and
  /// error go to files in the folder. The service looks for its other files beside the name that
  /// it is given as its own: its path when `name` is empty. Throws std::runtime_error when there is
  /// no daemon then.
  explicit DaemonProcess(const ServiceFolder& folder,
                         const std::vector<std::string>& arguments = {},
                         const std::string& name = {});

  /// Waits until the port is listened on, without connecting to it. Throws std::runtime_error with
  /// the service's messages when it ends instead, or takes a minute.
  void wait_until_listening(uint16_t port);

  /// Waits until a text (bytes) has come on standard output or error. Throws like
  /// wait_until_listening().
  void wait_for_message(std::string_view text);

  /// Sends SIGINT, waits for the end and returns the exit status, as ChildProcess::wait().
  int stop();

  ChildProcess& process() { return daemon; }
  std::string output() const;  ///< standard output so far, in GBK
  std::string errors() const;  ///< standard error so far, in GBK

 private:
  void wait_until(const std::function<bool()>& reached);

  const std::filesystem::path directory;
  ChildProcess daemon;
};
