#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/daemon_process.h"

enum class ServerKind { kService, kBare, kNode };

/// All kinds in the order in which they take turns, and their names in figures.
inline constexpr ServerKind kServerKinds[] = {ServerKind::kService, ServerKind::kBare,
                                              ServerKind::kNode};
const char* server_name(ServerKind kind);

/// Where the servers are found.
struct ServerPrograms {
  std::filesystem::path stage;      ///< the installed service
  std::filesystem::path reader;     ///< a reader library for it beside the demo library
  std::filesystem::path bare;       ///< the program quorvel_echo_server
  std::filesystem::path node_main;  ///< server.js, with its packages installed
};

struct Memory {
  double resident_mb = 0;
  double anonymous_mb = 0;  ///< the part of it that is neither a file's nor shared
};

/// One running server. The destructor ends it.
class MeasuredServer {
 public:
  /// Starts a server and returns when it has answered `request` (a request's text). Servers other
  /// than the service answer with `reply`. Throws std::runtime_error when that fails.
  MeasuredServer(ServerKind kind, const ServerPrograms& programs, const std::string& request,
                 const std::string& reply);
  MeasuredServer(const MeasuredServer&) = delete;
  MeasuredServer& operator=(const MeasuredServer&) = delete;
  ~MeasuredServer();

  std::uint16_t port() const { return listening_port; }
  /// The server's reply to the request it was started with.
  const std::string& first_reply() const { return answered; }
  /// From the launch to that reply.
  double start_ms() const { return started_in_ms; }

  Memory memory() const;
  /// CPU time used so far by all its threads, which other programs on the machine hardly change.
  double cpu_seconds() const;

 private:
  void launch(ServerKind kind, const ServerPrograms& programs, const std::string& reply);

  std::uint16_t listening_port;
  std::unique_ptr<ServiceFolder> folder;  ///< of the service only, as is the daemon
  std::unique_ptr<DaemonProcess> daemon;
  std::optional<ChildProcess> child;  ///< of the others
  pid_t process = 0;
  std::string answered;
  double started_in_ms = 0;
};

/// The CPUs are shared out: the servers get the first one, the calling thread the second. Does
/// nothing on a machine with one CPU. Call use_server_cpu() before a server is started, since
/// processes inherit it.
void use_server_cpu();
void use_generator_cpu();
