#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/daemon_process.h"

enum class ServerKind {
  kService,   ///< logging off
  kBare,      ///< a libwebsockets server that answers with a constant
  kNode,      ///< the service's job in Node.js
  kLogging,   ///< the service at the default log level, standard error in a file
  kIsolated,  ///< the service with its libraries isolated, logging off
  kEarlier    ///< an earlier version of the service, logging off
};

/// All kinds in the order in which they take turns, and their names.
inline constexpr ServerKind kServerKinds[] = {ServerKind::kService,  ServerKind::kBare,
                                              ServerKind::kNode,     ServerKind::kLogging,
                                              ServerKind::kIsolated, ServerKind::kEarlier};
const char* server_name(ServerKind kind);

/// Where the servers are found.
struct ServerPrograms {
  std::filesystem::path stage;      ///< the installed service
  std::filesystem::path earlier;    ///< the installed earlier version; empty when there is none
  std::filesystem::path reader;     ///< the reader library of both, beside the demo library
  std::filesystem::path bare;       ///< the program quorvel_echo_server
  std::filesystem::path node_main;  ///< server.js, with its packages installed
};

/// One running server. The destructor ends it.
class MeasuredServer {
 public:
  /// Starts a server and returns when it has answered `request` (a request's text) with `reply`,
  /// or, where that is empty, with anything. The bare server answers everything with it. Throws
  /// std::runtime_error when that fails.
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

  double resident_mb() const;
  /// Of the helper process that the service runs for the demo library.
  double helper_resident_mb() const;
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
