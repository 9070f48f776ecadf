#pragma once

#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/tcp_socket.h"

/// Moves this process into namespaces of its own, where /run is empty and the loopback interface is
/// up: the pcscd of this machine, and the virtual reader's port, belong to others. Call it before
/// the first thread; further calls do nothing. Throws std::system_error.
void enter_own_namespaces();

/// pcscd with the virtual reader "Virtual PCD".
class Pcscd {
 public:
  Pcscd();

  ChildProcess& process() { return *pcscd; }
  /// Ends it and leaves what a crash leaves.
  void kill();
  /// Ends it if it runs, and starts it.
  void start();

 private:
  std::optional<ChildProcess> pcscd;
};

/// A card that ends in the middle of an answer: the last bytes that the reader gets, which count as
/// they are, the two of the length included.
struct PulledAway {
  std::string last_bytes;
};

/// A card in the virtual reader from construction to destruction. Commands are answered on a thread
/// of its own.
class VirtualCard {
 public:
  /// The answer to a command, status included; throws PulledAway.
  using Answers = std::function<std::string(const std::string& command)>;

  VirtualCard(std::string atr_bytes, Answers answers_to_commands);
  VirtualCard(const VirtualCard&) = delete;
  VirtualCard& operator=(const VirtualCard&) = delete;
  ~VirtualCard();

 private:
  void serve();
  /// So many bytes; none once the reader has gone or the card is pulled.
  std::optional<std::string> receive(std::size_t size) const;

  const std::string atr;
  const Answers answers;
  const TcpSocket line;
  std::thread thread;
};

/// Bytes of hexadecimal digits with blanks between them.
std::string bytes(const std::string& digits);
