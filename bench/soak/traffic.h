#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ws_client.h"

/// What all traffic of a run shares. The texts are UTF-8.
struct SoakTarget {
  std::uint16_t port = 0;                ///< of the service
  std::vector<std::uint16_t> reachable;  ///< ports that "config" may store
  std::string page;                      ///< the file that "GET /" answers with
  std::string card;                      ///< reply to the request for the card
};

/// Counted by all threads.
struct SoakCounts {
  std::atomic<std::uint64_t> requests{0};     ///< messages that want a reply, and HTTP requests
  std::atomic<std::uint64_t> wrong{0};        ///< replies other than the one that was due
  std::atomic<std::uint64_t> lost{0};         ///< connections that ended, or kept silent
  std::atomic<std::uint64_t> connections{0};  ///< WebSocket connections opened
};

/// Mixed traffic on several connections at once, from the calling thread. What is sent is random;
/// every reply is checked for its place and content.
class Traffic {
 public:
  /// `number` tells the threads of a run apart: every function name asked for holds it, and it
  /// seeds the random choice.
  Traffic(const SoakTarget& soak_target, SoakCounts& soak_counts, unsigned number);

  /// Opens connections, sends traffic while `go_on` returns true, and closes them. Differences are
  /// counted and printed on standard error.
  void run(const std::function<bool()>& go_on);

 private:
  /// One connection and the replies it still has to bring; each a choice of those that are right.
  struct Client {
    WsClient connection;
    std::vector<std::vector<std::string>> due;
  };

  using Send = void (Traffic::*)(Client&);
  using Disturb = void (Traffic::*)();

  void turn(std::vector<Client>& clients);
  void receive_all(Client& client);
  void check(const std::string& reply, const std::vector<std::string>& right);

  // Messages, each with its replies noted as due.
  void send_whole(Client& client);
  void send_fragments(Client& client);
  void send_binary(Client& client);
  void send_pipelined(Client& client);
  void send_large(Client& client);
  void send_too_long(Client& client);
  void send_card(Client& client);
  void send_isolated(Client& client);
  void send_unrecognised(Client& client);
  void read_settings(Client& client);
  void store_settings(Client& client);
  void store_unreachable(Client& client);

  // Connections that come and go beside them.
  void fetch_page();
  void fetch_nothing();
  void connect_and_close();
  void vanish_in_message();
  void speak_nonsense();

  WsClient open();
  std::size_t pick(std::size_t count) { return random() % count; }
  /// A request for a function that no reader serves, whose name the reply gives back; of `size`
  /// bytes at least.
  std::string unique_request(Client& client, std::size_t size = 0);

  const SoakTarget& target;
  SoakCounts& counts;
  const unsigned thread_number;
  std::mt19937 random;
  std::uint64_t serial = 0;
};
