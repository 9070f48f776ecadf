#include "bench/soak/traffic.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <string_view>
#include <utility>

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
constexpr std::size_t kDisturbance = 4;  // one disturbance in so many turns
constexpr std::size_t kRenewal = 50;     // one connection in so many is closed after its turn
constexpr unsigned char kWholeText = 0x81;

constexpr char kCardRequest[] = R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
constexpr char kDone[] = R"({"result":"true"})";

std::string settings_request(std::uint16_t port) {
  return R"({"fid":"config","ip":"127.0.0.1","port":)" + std::to_string(port) + "}";
}

std::string settings_reply(std::uint16_t port) {
  return R"({"result":"true","ip":"127.0.0.1","port":")" + std::to_string(port) + "\"}";
}

std::string http(std::uint16_t port, const std::string& request) {
  const TcpSocket socket = TcpSocket::connect(port);
  socket.send(request);
  return socket.receive_until_close();
}

}  // namespace

Traffic::Traffic(const SoakTarget& soak_target, SoakCounts& soak_counts, unsigned number)
    : target(soak_target), counts(soak_counts), thread_number(number), random(number) {}

void Traffic::run(const std::function<bool()>& go_on) {
  while (go_on()) {
    try {
      std::vector<Client> clients;
      while (clients.size() < kConnections) clients.push_back({open(), {}});
      while (go_on()) turn(clients);
      for (Client& client : clients) client.connection.close();
    } catch (const std::exception& error) {  // a connection that ends, which none here should
      ++counts.lost;
      std::fprintf(stderr, "thread %u: %s\n", thread_number, error.what());
    }
  }
}

void Traffic::turn(std::vector<Client>& clients) {
  constexpr Send kSends[] = {
      &Traffic::send_whole,        &Traffic::send_whole,    &Traffic::send_fragments,
      &Traffic::send_fragments,    &Traffic::send_binary,   &Traffic::send_pipelined,
      &Traffic::send_large,        &Traffic::send_too_long, &Traffic::send_card,
      &Traffic::send_isolated,     &Traffic::send_card,     &Traffic::send_isolated,
      &Traffic::send_unrecognised, &Traffic::read_settings, &Traffic::store_settings,
      &Traffic::store_unreachable};
  constexpr Disturb kDisturbances[] = {&Traffic::fetch_page, &Traffic::fetch_nothing,
                                       &Traffic::connect_and_close, &Traffic::vanish_in_message,
                                       &Traffic::speak_nonsense};
  for (Client& client : clients) (this->*kSends[pick(std::size(kSends))])(client);
  if (pick(kDisturbance) == 0) (this->*kDisturbances[pick(std::size(kDisturbances))])();
  for (Client& client : clients) {
    receive_all(client);
    if (pick(kRenewal) != 0) continue;
    client.connection.close();
    client.connection = open();
  }
}

void Traffic::receive_all(Client& client) {
  for (const auto& right : std::exchange(client.due, {})) check(client.connection.receive(), right);
}

void Traffic::check(const std::string& reply, const std::vector<std::string>& right) {
  ++counts.requests;
  if (std::find(right.begin(), right.end(), reply) != right.end()) return;
  ++counts.wrong;
  std::fprintf(stderr, "thread %u: %s\n  came instead of %s\n", thread_number, reply.c_str(),
               right.front().c_str());
}

std::string Traffic::unique_request(Client& client, std::size_t size) {
  const std::string fid = "Soak-" + std::to_string(thread_number) + "-" + std::to_string(++serial);
  client.due.push_back({failure(utf8(messages::kNotSupported), fid)});
  const std::string start = R"({"fid":")" + fid + R"(","pad":")";
  return start + std::string(size > start.size() + 2 ? size - start.size() - 2 : 0, 'x') + "\"}";
}

void Traffic::send_whole(Client& client) { client.connection.send(unique_request(client)); }

void Traffic::send_binary(Client& client) { client.connection.send_binary(unique_request(client)); }

void Traffic::send_large(Client& client) {
  client.connection.send(unique_request(client, 1 + pick(kLargest)));
}

void Traffic::send_fragments(Client& client) {
  const std::string request = unique_request(client, pick(2) == 0 ? 0 : pick(kLargest));
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
  client.due.push_back({failure(utf8(messages::kMessageTooLong))});
  client.connection.send(std::string(kTooLong, '{'));
}

void Traffic::send_card(Client& client) {
  client.due.push_back({target.card});
  client.connection.send(kCardRequest);
}

/// Of the isolated library, whose helper is killed now and then.
void Traffic::send_isolated(Client& client) {
  const std::string fid = "example.serial";
  client.due.push_back(
      {R"({"result":"true","fid":"example.serial","maker":"示例读卡器","serial":"0001"})",
       failure(utf8(messages::kLibraryCrashed), fid),
       failure(utf8(messages::kLibraryUnavailable), fid)});
  client.connection.send(R"({"fid":"example.serial"})");
}

void Traffic::send_unrecognised(Client& client) {
  client.due.push_back({failure(utf8(messages::kUnrecognised))});
  client.connection.send(pick(2) == 0 ? "" : "unknown");
}

void Traffic::read_settings(Client& client) {
  std::vector<std::string> right;
  for (const std::uint16_t port : target.reachable) right.push_back(settings_reply(port));
  client.due.push_back(right);
  client.connection.send(R"({"fid":"getconfig"})");
}

void Traffic::store_settings(Client& client) {
  client.due.push_back({kDone, failure(utf8(messages::kBusy))});
  client.connection.send(settings_request(target.reachable[pick(target.reachable.size())]));
}

void Traffic::store_unreachable(Client& client) {
  client.due.push_back({R"({"result":"false","errmsg":"请检网络-连接127.0.0.1:1   失败！"})",
                        failure(utf8(messages::kBusy))});
  client.connection.send(settings_request(1));
}

void Traffic::fetch_page() {
  const std::string response = http(target.port, "GET / HTTP/1.0\r\n\r\n");
  const std::size_t head = response.find("\r\n\r\n");
  check(head == std::string::npos ? response : response.substr(head + 4), {target.page});
}

void Traffic::fetch_nothing() {
  check(http(target.port, "GET /no-such-file HTTP/1.0\r\n\r\n").substr(0, 12), {"HTTP/1.0 404"});
}

void Traffic::connect_and_close() {
  Client client{open(), {}};
  send_whole(client);
  receive_all(client);
  client.connection.close();
}

void Traffic::vanish_in_message() {
  WsClient client = open();
  client.send_piece(R"({"fid":"never",)", false);
  if (pick(2) == 0) client.send_raw(masked_frame(kWholeText, "cut").substr(0, 1 + pick(8)));
  client.vanish();
}

void Traffic::speak_nonsense() {
  const TcpSocket socket = TcpSocket::connect(target.port);
  socket.send(std::string(1 + pick(3000), static_cast<char>(pick(256))));
}

WsClient Traffic::open() {
  ++counts.connections;
  return WsClient(target.port);
}
