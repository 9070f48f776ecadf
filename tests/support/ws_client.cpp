// The only file that includes Boost.Beast, which takes long to compile.

#include "tests/support/ws_client.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <deque>
#include <utility>
#include <variant>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;
// Without support for compression, which the service does not offer.
using PlainStream = websocket::stream<tcp::socket, false>;
using TlsStream = websocket::stream<asio::ssl::stream<tcp::socket>, false>;

/// Beast's operations without time-out block for ever, so each runs as an asynchronous one, on an
/// io_context of the connection's own, until it is done or the limit has passed.
class WsClient::Connection {
 public:
  Connection(uint16_t port, const WsOptions& client_options)
      : options(client_options), stream(make_stream()) {
    const tcp::endpoint service(asio::ip::address_v4::loopback(), port);
    run("connect", [&](auto& ws, auto done) { tcp_of(ws).async_connect(service, done); });
    if (auto* tls = std::get_if<TlsStream>(&stream)) handshake(tls->next_layer());
    std::visit([this](auto& ws) { set_up(ws); }, stream);
    run("upgrade", [this](auto& ws, auto done) { ws.async_handshake(options.host, "/", done); });
    std::visit([this](auto& ws) { keep_reading(ws); }, stream);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  ~Connection() {
    try {
      abandon();
    } catch (...) {  // the connection ends either way
    }
  }

  /// Starts an operation with the handler it is given and returns when that has been called.
  template <typename Start>
  void run(const char* what, Start start) {
    bool finished = false;
    error_code error;
    const auto done = [&](error_code result, size_t = 0) {  // some report a number of bytes too
      error = result;
      finished = true;
    };
    std::visit([&](auto& ws) { start(ws, done); }, stream);
    run_until(what, [&] { return finished; });
    if (error) throw boost::system::system_error(error, what);
  }

  void write(std::string_view piece, bool final, bool binary) {
    run("send", [&](auto& ws, auto done) {
      ws.binary(binary);
      ws.async_write_some(final, asio::buffer(piece), done);
    });
  }

  std::string receive() {
    read_until("receive", [this] { return !inbox.empty(); });
    std::string message = std::move(inbox.front());
    inbox.pop_front();
    return message;
  }

  void ping() {
    const int awaited = pongs + 1;
    run("ping", [](auto& ws, auto done) { ws.async_ping({}, done); });
    read_until("pong", [&] { return pongs >= awaited; });
  }

  void vanish() {
    std::visit([](auto& ws) { tcp_of(ws).set_option(asio::socket_base::linger(true, 0)); }, stream);
    abandon();
  }

  std::string alpn() {
    const unsigned char* name = nullptr;
    unsigned int length = 0;
    if (auto* tls = std::get_if<TlsStream>(&stream))
      SSL_get0_alpn_selected(tls->next_layer().native_handle(), &name, &length);
    return std::string(name, name + length);
  }

 private:
  using Stream = std::variant<PlainStream, TlsStream>;

  template <typename WebSocket>
  static tcp::socket& tcp_of(WebSocket& ws) {
    return beast::get_lowest_layer(ws);
  }

  Stream make_stream() {
    if (options.tls) return Stream(std::in_place_type<TlsStream>, loop, tls_context);
    return Stream(std::in_place_type<PlainStream>, loop);
  }

  void handshake(asio::ssl::stream<tcp::socket>& tls) {
    std::string offer;  // each name behind a byte that holds its length
    for (const std::string& name : options.alpn) offer += static_cast<char>(name.size()) + name;
    SSL_set_alpn_protos(tls.native_handle(), reinterpret_cast<const unsigned char*>(offer.data()),
                        static_cast<unsigned int>(offer.size()));
    run("TLS handshake",
        [&](auto&, auto done) { tls.async_handshake(asio::ssl::stream_base::client, done); });
  }

  template <typename WebSocket>
  void set_up(WebSocket& ws) {
    tcp_of(ws).set_option(tcp::no_delay(true));
    ws.auto_fragment(false);
    ws.read_message_max(0);
    ws.set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
      request.set(beast::http::field::sec_websocket_protocol, "ws");
      if (!options.origin.empty()) request.set(beast::http::field::origin, options.origin);
    }));
    ws.control_callback([this](websocket::frame_type kind, beast::string_view) {
      if (kind == websocket::frame_type::pong) ++pongs;
    });
  }

  /// Reads from now on whenever the loop runs, which also answers control frames.
  template <typename WebSocket>
  void keep_reading(WebSocket& ws) {
    ws.async_read(incoming, [this, &ws](error_code error, size_t) {
      read_error = error;
      if (!error && !ws.got_text()) read_error = websocket::error::bad_opcode;
      if (read_error) return;
      inbox.push_back(beast::buffers_to_string(incoming.data()));
      incoming.clear();
      keep_reading(ws);
    });
  }

  template <typename Condition>
  void read_until(const char* what, Condition reached) {
    run_until(what, [&] { return reached() || read_error; });
    if (!reached()) throw boost::system::system_error(read_error, what);
  }

  template <typename Condition>
  void run_until(const char* what, Condition reached) {
    const auto deadline = std::chrono::steady_clock::now() + options.limit;
    while (!reached()) {
      if (loop.stopped()) loop.restart();
      if (loop.run_one_until(deadline) > 0) continue;
      abandon();
      throw boost::system::system_error(asio::error::timed_out, what);
    }
  }

  /// Closes the socket and lets the operations in hand end, since their handlers refer to us. One
  /// that Beast keeps back for another would be waited for in vain; it goes with the stream.
  void abandon() {
    error_code ignored;
    std::visit([&](auto& ws) { tcp_of(ws).close(ignored); }, stream);
    loop.restart();
    loop.poll();
  }

  const WsOptions options;
  asio::io_context loop{1};
  asio::ssl::context tls_context{asio::ssl::context::tls_client};
  Stream stream;
  beast::flat_buffer incoming;
  std::deque<std::string> inbox;
  error_code read_error;
  int pongs = 0;
};

WsClient::WsClient(uint16_t port, const WsOptions& options)
    : connection(std::make_unique<Connection>(port, options)) {}

WsClient::WsClient(WsClient&&) noexcept = default;
WsClient& WsClient::operator=(WsClient&&) noexcept = default;
WsClient::~WsClient() = default;

void WsClient::send_piece(std::string_view piece, bool final) {
  connection->write(piece, final, false);
}

void WsClient::send_binary(std::string_view bytes) { connection->write(bytes, true, true); }

void WsClient::send_fragments(const std::vector<std::string>& pieces) {
  for (const std::string& piece : pieces) send_piece(piece, &piece == &pieces.back());
}

void WsClient::send_raw(std::string_view bytes) {
  connection->run("send", [&](auto& ws, auto done) {
    asio::async_write(ws.next_layer(), asio::buffer(bytes), done);
  });
}

std::string WsClient::receive() { return connection->receive(); }

std::string WsClient::ask(std::string_view request) {
  send(request);
  return receive();
}

void WsClient::ping() { connection->ping(); }

void WsClient::close() {
  connection->run("close",
                  [](auto& ws, auto done) { ws.async_close(websocket::close_code::normal, done); });
}

void WsClient::vanish() { connection->vanish(); }

std::string WsClient::alpn() const { return connection->alpn(); }
