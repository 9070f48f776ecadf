#include "bench/soak/traffic.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "tests/support/eventually.h"
#include "tests/support/files.h"
#include "tests/support/tcp_socket.h"
#include "tests/support/text.h"
#include "tests/support/ws_frame.h"
#include "util/text/messages.h"

namespace {

constexpr std::size_t kConnections = 8;
constexpr std::size_t kPipelined = 20;
constexpr std::size_t kLargest = 100000;  // bytes of a request that the service takes
constexpr std::size_t kTooLong = 150000;
constexpr std::size_t kMostPieces = 6;
constexpr std::size_t kFlood = 3000;       // replies: more than the kernel keeps for a socket
constexpr std::size_t kLongReply = 1000;   // bytes that the library writes
constexpr std::size_t kCardsInFlood = 10;  // all but one in so many are for the card
constexpr unsigned kRest = 60;             // turns
constexpr std::size_t kSuccessorToo = 16;  // one kill in so many
constexpr unsigned kShownInFull = 20;      // wrong replies
constexpr unsigned char kWholeText = 0x81;
constexpr unsigned char kClosing = 0x88;

constexpr char kSettingsRequest[] = R"({"fid":"getconfig"})";
// What a function of an isolated library is named behind "soak.NAME".
constexpr std::string_view kQuick;
constexpr std::string_view kSlow = ".slow";
constexpr std::string_view kLong = ".long";
constexpr std::string_view kKinds[] = {kQuick, kSlow, kSlow, kLong};

constexpr char kDone[] = R"({"result":"true"})";

std::string settings_reply(std::uint16_t port) {
  return R"({"result":"true","ip":"127.0.0.1","port":")" + std::to_string(port) + "\"}";
}

std::string platform() {
  utsname system{};
  uname(&system);
  return system.machine;
}

std::string http(std::uint16_t port, const std::string& request) {
  const TcpSocket socket = TcpSocket::connect(port);
  socket.send(request);
  return socket.receive_until_close();
}

}  // namespace

std::string settings_request(std::uint16_t port) {
  return R"({"fid":"config","ip":"127.0.0.1","port":)" + std::to_string(port) + "}";
}

const Traffic::Choice Traffic::kChoices[] = {{50, &Traffic::send_whole},
                                             {50, &Traffic::send_fragments},
                                             {25, &Traffic::send_binary},
                                             {25, &Traffic::send_pipelined},
                                             {25, &Traffic::send_large},
                                             {15, &Traffic::send_too_long},
                                             {50, &Traffic::send_card},
                                             {150, &Traffic::send_isolated},
                                             {25, &Traffic::send_unrecognised},
                                             {25, &Traffic::read_settings},
                                             {20, &Traffic::store_settings},
                                             {20, &Traffic::store_unreachable},
                                             {10, &Traffic::change_nothing},
                                             {2, &Traffic::stop_reading},
                                             {25, &Traffic::cancel},
                                             {15, &Traffic::reconnect},
                                             {8, &Traffic::kill_helper},
                                             {10, &Traffic::fetch_page},
                                             {10, &Traffic::fetch_nothing},
                                             {10, &Traffic::connect_and_close},
                                             {10, &Traffic::vanish_in_message},
                                             {10, &Traffic::speak_nonsense}};

Traffic::Traffic(const SoakTarget& soak_target, SoakCounts& soak_counts, Helpers& service_helpers,
                 unsigned number, bool stores_settings)
    : target(soak_target),
      counts(soak_counts),
      helpers(service_helpers),
      thread_number(number),
      may_store(stores_settings),
      random(number) {}

void Traffic::run(const std::function<bool()>& go_on) {
  while (go_on()) {
    try {
      clients.clear();
      while (clients.size() < kConnections) clients.push_back(open());
      do take_step();
      while (go_on());
      receive_all();
      for (Client& client : clients) client.connection.close();
    } catch (const std::exception& error) {  // a connection that ends, which none here should
      ++counts.lost;
      std::fprintf(stderr, "thread %u: %s\n", thread_number, error.what());
    }
  }
}

Traffic::Step Traffic::next_step() {
  static const std::size_t weights =
      std::accumulate(std::begin(kChoices), std::end(kChoices), std::size_t{0},
                      [](std::size_t sum, const Choice& choice) { return sum + choice.weight; });
  std::size_t left = pick(weights);
  const Choice* choice = kChoices;
  while (left >= choice->weight) left -= choice++->weight;
  return choice->step;
}

/// Lets one of the clients receive what it has asked for, or do a step, or both.
void Traffic::take_step() {
  Client& client = clients[pick(clients.size())];
  if (client.rest > 0) {
    if (--client.rest == 0) receive_all(client);
    return;
  }
  if (pick(2) == 0) receive_all(client);
  (this->*next_step())(client);
}

void Traffic::receive_all(Client& client) {
  for (const Due& due : std::exchange(client.due, {})) check(client.connection.receive(), due);
}

void Traffic::receive_all() {
  for (Client& client : clients) receive_all(client);
}

/// Whether it is one of the right replies, and not a failure that has its excuse.
bool Traffic::check(const std::string& reply, const Due& due) {
  ++counts.requests;
  if (std::find(due.right.begin(), due.right.end(), reply) != due.right.end()) return true;
  if (!due.isolated.empty() && !helpers.well_since(due.asked_at))
    for (const GbkView reason : {messages::kLibraryCrashed, messages::kLibraryUnavailable})
      if (reply == failure(utf8(reason), due.isolated)) return false;
  if (++counts.wrong <= kShownInFull)
    std::fprintf(stderr, "thread %u: %s\n  came instead of %s\n", thread_number, reply.c_str(),
                 due.right.front().c_str());
  return false;
}

void Traffic::expect(Client& client, std::vector<std::string> right, const std::string& isolated) {
  client.due.push_back({std::move(right), isolated, helpers.now()});
}

std::string Traffic::unique_name() {
  return "Soak-" + std::to_string(thread_number) + "-" + std::to_string(++serial);
}

/// A request for a function that no library has, whose name the reply gives back; of `size` bytes
/// at least.
std::string Traffic::unique_request(Client& client, std::size_t size) {
  const std::string fid = unique_name();
  expect(client, {failure(utf8(messages::kNotSupported), fid)});
  const std::string start = R"({"fid":")" + fid + R"(","pad":")";
  return start + std::string(size > start.size() + 2 ? size - start.size() - 2 : 0, 'x') + "\"}";
}

/// A request for a function of an isolated library, which the reply gives back.
std::string Traffic::isolated_request(Client& client, const std::string& library,
                                      std::string_view kind) {
  static const std::string platform_member = R"(,"platform":")" + platform() + '"';
  const std::string fid = ("soak." + library).append(kind);
  const std::string members = R"("n":")" + unique_name() + '"';
  const std::string start = R"({"result":"true","fid":")" + fid + R"(","command":{)" + members +
                            platform_member + R"(},"pad":")" + "读卡";
  // The library counts in GBK, in which the two characters are shorter by as much as `"}` is long.
  const std::size_t padding = kind == kLong ? kLongReply - start.size() : 0;
  expect(client, {start + std::string(padding, 'x') + "\"}"}, fid);
  return R"({"fid":")" + fid + "\"," + members + "}";
}

std::string Traffic::card_request(Client& client) {
  expect(client, {target.card});
  return R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
}

void Traffic::send_whole(Client& client) { client.connection.send(unique_request(client)); }

void Traffic::send_binary(Client& client) { client.connection.send_binary(unique_request(client)); }

void Traffic::send_large(Client& client) {
  client.connection.send(unique_request(client, 1 + pick(kLargest)));
}

void Traffic::send_fragments(Client& client) {
  const std::string request = pick(2) == 0 ? isolated_request(client, kIsolatedNames[0], kQuick)
                                           : unique_request(client, pick(kLargest));
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  for (std::size_t left = 1 + pick(kMostPieces); left > 0; --left) {
    const std::size_t end = left == 1 ? request.size() : begin + pick(request.size() - begin + 1);
    pieces.push_back(request.substr(begin, end - begin));
    begin = end;
  }
  client.connection.send_fragments(pieces);
}

void Traffic::send_pipelined(Client& client) {
  std::string bytes;
  for (std::size_t count = 0; count < kPipelined; ++count)
    bytes += masked_frame(kWholeText, unique_request(client));
  client.connection.send_raw(bytes);
}

void Traffic::send_too_long(Client& client) {
  expect(client, {failure(utf8(messages::kMessageTooLong))});
  client.connection.send(std::string(kTooLong, '{'));
}

void Traffic::send_card(Client& client) { client.connection.send(card_request(client)); }

void Traffic::send_isolated(Client& client) {
  const char* library = kIsolatedNames[pick(std::size(kIsolatedNames))];
  client.connection.send(isolated_request(client, library, kKinds[pick(std::size(kKinds))]));
}

void Traffic::send_unrecognised(Client& client) {
  expect(client, {failure(utf8(messages::kUnrecognised))});
  client.connection.send(pick(2) == 0 ? "" : "unknown");
}

void Traffic::read_settings(Client& client) {
  std::vector<std::string> right;
  for (const std::uint16_t port : target.reachable) right.push_back(settings_reply(port));
  expect(client, std::move(right));
  client.connection.send(kSettingsRequest);
}

void Traffic::store_settings(Client& client) {
  if (!may_store) return read_settings(client);
  expect(client, {kDone, failure(utf8(messages::kBusy))});
  client.connection.send(settings_request(target.reachable[pick(target.reachable.size())]));
}

void Traffic::store_unreachable(Client& client) {
  expect(client, {R"({"result":"false","errmsg":"请检网络-连接127.0.0.1:1   失败！"})",
                  failure(utf8(messages::kBusy))});
  client.connection.send(settings_request(1));
}

/// Stores the settings as they are, and looks whether they, and their file, stay so.
void Traffic::change_nothing(Client& client) {
  if (!may_store) return read_settings(client);
  receive_all();
  const std::string stored = client.connection.ask(kSettingsRequest);
  const std::string file = read_file(target.settings_file);
  for (const std::uint16_t port : target.reachable) {
    if (stored != settings_reply(port)) continue;
    expect(client, {kDone, failure(utf8(messages::kBusy))});
    expect(client, {stored});
    client.connection.send(settings_request(port));
    client.connection.send(kSettingsRequest);
    receive_all(client);
    check(read_file(target.settings_file), {{file}, {}, 0});
    return;
  }
  check(stored, {{settings_reply(target.reachable[0])}, {}, 0});
}

/// Asks for more than the connection holds, and leaves the replies for a while.
void Traffic::stop_reading(Client& client) {
  std::string bytes;
  for (std::size_t left = kFlood; left > 0; --left) {
    if (left % kCardsInFlood == 0) {
      bytes += masked_frame(kWholeText, isolated_request(client, kIsolatedNames[0], kLong));
    } else {
      bytes += masked_frame(kWholeText, card_request(client));
    }
  }
  client.connection.send_raw(bytes);
  client.rest = kRest;
}

/// Ends the connection while replies are due.
void Traffic::cancel(Client& client) {
  const char* library = kIsolatedNames[pick(std::size(kIsolatedNames))];
  for (std::size_t left = 1 + pick(3); left > 0; --left)
    client.connection.send(isolated_request(client, library, kSlow));
  switch (pick(3)) {
    case 0:
      client.connection.send_raw(masked_frame(kClosing, {}));
      break;
    case 1:
      client.connection.vanish();
      break;
    default:
      break;  // TCP's end alone
  }
  client = open();
}

void Traffic::reconnect(Client& client) {
  receive_all(client);
  client.connection.close();
  client = open();
}

void Traffic::kill_helper(Client&) {
  ++counts.kills;
  const std::size_t choice = pick(std::size(kIsolatedNames));
  const bool successor_too = pick(kSuccessorToo) == 0;
  helpers.kill_one(choice, successor_too, [this] { wait_until_well(); });
}

/// Asks each isolated library until it answers.
void Traffic::wait_until_well() {
  for (const char* library : kIsolatedNames) {
    Client client = open();
    const auto answers = [&] {
      client.connection.send(isolated_request(client, library, kQuick));
      const Due due = std::move(client.due.back());
      client.due.clear();
      return check(client.connection.receive(), due) || counts.wrong > 0;
    };
    if (!eventually(answers)) throw std::runtime_error("a library does not answer any more");
  }
}

void Traffic::fetch_page(Client&) {
  const std::string response = http(target.port, "GET / HTTP/1.0\r\n\r\n");
  const std::size_t head = response.find("\r\n\r\n");
  check(head == std::string::npos ? response : response.substr(head + 4), {{target.page}, {}, 0});
}

void Traffic::fetch_nothing(Client&) {
  const std::string response = http(target.port, "GET /no-such-file HTTP/1.0\r\n\r\n");
  check(response.substr(0, 12), {{"HTTP/1.0 404"}, {}, 0});
}

void Traffic::connect_and_close(Client&) {
  Client client = open();
  send_whole(client);
  receive_all(client);
  client.connection.close();
}

void Traffic::vanish_in_message(Client&) {
  Client client = open();
  client.connection.send_piece(R"({"fid":"never",)", false);
  if (pick(2) == 0)
    client.connection.send_raw(masked_frame(kWholeText, "cut").substr(0, 1 + pick(8)));
  client.connection.vanish();
}

void Traffic::speak_nonsense(Client&) {
  const TcpSocket socket = TcpSocket::connect(target.port);
  const std::size_t size = 1 + pick(3000);
  socket.send(std::string(size, static_cast<char>(pick(256))));
}

Traffic::Client Traffic::open() {
  ++counts.connections;
  return {WsClient(target.port), {}, 0};
}
