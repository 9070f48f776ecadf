#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/soak/helpers.h"
#include "tests/support/ws_client.h"

/// The isolated libraries by the names that their functions bear (soak_reader.c).
inline constexpr const char* kIsolatedNames[] = {"one", "two"};

/// The request that stores 127.0.0.1 and this port.
std::string settings_request(std::uint16_t port);

/// What all traffic of a run shares. The texts are UTF-8.
struct SoakTarget {
  std::uint16_t port = 0;                ///< of the service
  std::vector<std::uint16_t> reachable;  ///< ports that "config" may store; one of them is stored
  std::string page;                      ///< the file that "GET /" answers with
  std::string card;                      ///< reply to the request for the card
  std::filesystem::path settings_file;   ///< that "config" writes
};

/// Counted by all threads.
struct SoakCounts {
  std::atomic<std::uint64_t> requests{0};     ///< messages that want a reply, and HTTP requests
  std::atomic<std::uint64_t> wrong{0};        ///< replies other than the one that was due
  std::atomic<std::uint64_t> lost{0};         ///< connections that ended, or kept silent
  std::atomic<std::uint64_t> connections{0};  ///< WebSocket connections opened
  std::atomic<std::uint64_t> kills{0};        ///< of helper processes
};

/// Mixed traffic on several connections at once, from the calling thread, step by step. The steps
/// follow from the seed alone; every reply is checked for its place and content.
class Traffic {
 public:
  /// `number` tells the threads of a run apart: every request that has room for it holds it, and it
  /// seeds the random choice. Only one thread of a run stores settings.
  Traffic(const SoakTarget& soak_target, SoakCounts& soak_counts, Helpers& service_helpers,
          unsigned number, bool stores_settings);

  /// Opens connections, takes steps while `go_on` returns true, receives what is still due and
  /// closes them. Differences are counted and printed on standard error.
  void run(const std::function<bool()>& go_on);

 private:
  /// A reply that has to come.
  struct Due {
    std::vector<std::string> right;  ///< a choice of texts
    std::string isolated;            ///< the function, if an isolated library is asked
    unsigned asked_at;               ///< when, for Helpers::well_since()
  };

  struct Client {
    WsClient connection;
    std::vector<Due> due;  ///< in this order
    unsigned rest;         ///< steps for which it does not read
  };

  using Step = void (Traffic::*)(Client&);
  struct Choice {
    std::size_t weight;
    Step step;
  };
  static const Choice kChoices[];

  Step next_step();
  void take_step();
  void receive_all(Client& client);
  void receive_all();
  bool check(const std::string& reply, const Due& due);

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
  void change_nothing(Client& client);

  // What becomes of a connection.
  void stop_reading(Client& client);
  void cancel(Client& client);
  void reconnect(Client& client);

  // What goes on beside it.
  void kill_helper(Client&);
  void fetch_page(Client&);
  void fetch_nothing(Client&);
  void connect_and_close(Client&);
  void vanish_in_message(Client&);
  void speak_nonsense(Client&);

  Client open();
  std::size_t pick(std::size_t count) { return random() % count; }
  void expect(Client& client, std::vector<std::string> right, const std::string& isolated = {});
  std::string unique_name();
  std::string unique_request(Client& client, std::size_t size = 0);
  std::string card_request(Client& client);
  std::string isolated_request(Client& client, const std::string& library, std::string_view kind);
  void wait_until_well();

  const SoakTarget& target;
  SoakCounts& counts;
  Helpers& helpers;
  const unsigned thread_number;
  const bool may_store;
  std::mt19937 random;
  std::vector<Client> clients;
  std::uint64_t serial = 0;
};
