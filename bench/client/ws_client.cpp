#include "bench/client/ws_client.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <deque>
#include <utility>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;
using PlainStream = tcp::socket;
using TlsStream = asio::ssl::stream<tcp::socket>;

/// What WsClient needs of a connection, plain or TLS.
class WsClient::Connection {
 public:
  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() = default;
  virtual void write(std::string_view piece, bool final, bool binary) = 0;
  virtual void write_raw(std::string_view bytes) = 0;
  virtual std::pair<std::string, bool> read() = 0;
  virtual void ping() = 0;
  virtual void close() = 0;
  virtual void vanish() = 0;
  virtual std::string alpn() = 0;
};

/// Beast's operations without time-out block for ever, so each runs as an asynchronous one, on an
/// io_context of the connection's own, until it is done or the limit has passed.
template <typename Stream>
class WsClient::StreamConnection : public Connection {
 public:
  StreamConnection(uint16_t port, const WsOptions& client_options)
      : options(client_options), stream(make_stream()) {
    connect_tcp(port);
    handshake_tls();
    stream.auto_fragment(false);
    stream.read_message_max(0);
    stream.set_option(websocket::stream_base::decorator([](websocket::request_type& request) {
      request.set(beast::http::field::sec_websocket_protocol, "ws");
    }));
    stream.control_callback([this](websocket::frame_type kind, beast::string_view) {
      if (kind == websocket::frame_type::pong) ++pongs;
    });
    run("upgrade",
        [this](auto done) { stream.async_handshake("127.0.0.1", "/", std::move(done)); });
  }

  StreamConnection(const StreamConnection&) = delete;
  StreamConnection& operator=(const StreamConnection&) = delete;

  ~StreamConnection() override {
    try {
      abandon();
    } catch (...) {  // the connection ends either way
    }
  }

  void write(std::string_view piece, bool final, bool binary) override {
    stream.binary(binary);
    run("send",
        [&](auto done) { stream.async_write_some(final, asio::buffer(piece), std::move(done)); });
  }

  void write_raw(std::string_view bytes) override {
    run("send", [&](auto done) {
      asio::async_write(stream.next_layer(), asio::buffer(bytes), std::move(done));
    });
  }

  std::pair<std::string, bool> read() override {
    read_until("receive", [this] { return !inbox.empty(); });
    std::pair<std::string, bool> message = std::move(inbox.front());
    inbox.pop_front();
    return message;
  }

  void ping() override {
    const int awaited = pongs + 1;
    run("ping", [this](auto done) { stream.async_ping({}, std::move(done)); });
    read_until("pong", [&] { return pongs >= awaited; });
  }

  void close() override {
    run("close",
        [this](auto done) { stream.async_close(websocket::close_code::normal, std::move(done)); });
  }

  void vanish() override {
    stream.next_layer().lowest_layer().set_option(asio::socket_base::linger(true, 0));
    abandon();
  }

  std::string alpn() override {
    const unsigned char* name = nullptr;
    unsigned int length = 0;
    if constexpr (std::is_same_v<Stream, TlsStream>) {
      SSL_get0_alpn_selected(stream.next_layer().native_handle(), &name, &length);
    }
    return std::string(name, name + length);
  }

 private:
  websocket::stream<Stream> make_stream() {
    if constexpr (std::is_same_v<Stream, TlsStream>) {
      return websocket::stream<Stream>(loop, tls_context);
    } else {
      return websocket::stream<Stream>(loop);
    }
  }

  void connect_tcp(uint16_t port) {
    const tcp::endpoint service(asio::ip::address_v4::loopback(), port);
    auto& socket = stream.next_layer().lowest_layer();
    run("connect", [&](auto done) { socket.async_connect(service, std::move(done)); });
    socket.set_option(tcp::no_delay(true));
  }

  void handshake_tls() {
    if constexpr (std::is_same_v<Stream, TlsStream>) {
      std::string offer;  // each name behind a byte that holds its length
      for (const std::string& name : options.alpn) offer += static_cast<char>(name.size()) + name;
      SSL_set_alpn_protos(stream.next_layer().native_handle(),
                          reinterpret_cast<const unsigned char*>(offer.data()),
                          static_cast<unsigned int>(offer.size()));
      run("TLS handshake", [this](auto done) {
        stream.next_layer().async_handshake(asio::ssl::stream_base::client, std::move(done));
      });
    }
  }

  /// Starts an operation with the handler it is given and returns when that has been called.
  template <typename Start>
  void run(const char* what, Start start) {
    bool finished = false;
    error_code error;
    // Operations that move bytes report their number too.
    start([&](error_code result, auto...) {
      error = result;
      finished = true;
    });
    run_until(what, [&] { return finished; });
    if (error) throw WsFailure(std::string(what) + ": " + error.message());
  }

  /// Keeps a read going, which also answers control frames, until the condition holds.
  template <typename Condition>
  void read_until(const char* what, Condition reached) {
    while (!reached()) {
      if (read_error) throw WsFailure(std::string(what) + ": " + read_error.message());
      if (!reading) start_read();
      run_until(what, [&] { return !reading || reached(); });
    }
  }

  void start_read() {
    reading = true;
    stream.async_read(incoming, [this](error_code error, size_t) {
      reading = false;
      read_error = error;
      if (error) return;
      inbox.emplace_back(beast::buffers_to_string(incoming.data()), stream.got_text());
      incoming.clear();
    });
  }

  template <typename Condition>
  void run_until(const char* what, Condition reached) {
    const auto deadline = std::chrono::steady_clock::now() + options.limit;
    while (!reached()) {
      if (loop.stopped()) loop.restart();
      if (loop.run_one_until(deadline) == 0) {
        abandon();
        throw WsFailure(std::string(what) + ": time-out");
      }
    }
  }

  /// Closes the socket and lets every operation in hand end, since their handlers refer to us.
  void abandon() {
    error_code ignored;
    stream.next_layer().lowest_layer().close(ignored);
    loop.restart();
    loop.run();
  }

  const WsOptions options;
  asio::io_context loop{1};
  asio::ssl::context tls_context{asio::ssl::context::tls_client};
  websocket::stream<Stream> stream;
  beast::flat_buffer incoming;
  std::deque<std::pair<std::string, bool>> inbox;  ///< messages; true: a text message
  bool reading = false;
  error_code read_error;
  int pongs = 0;
};

WsClient::WsClient(uint16_t port, const WsOptions& options) {
  try {
    if (options.tls) {
      connection = std::make_unique<StreamConnection<TlsStream>>(port, options);
    } else {
      connection = std::make_unique<StreamConnection<PlainStream>>(port, options);
    }
  } catch (const boost::system::system_error& error) {
    throw WsFailure(error.what());
  }
}

WsClient::WsClient(WsClient&&) noexcept = default;
WsClient& WsClient::operator=(WsClient&&) noexcept = default;
WsClient::~WsClient() = default;

void WsClient::send(std::string_view text) { connection->write(text, true, false); }

void WsClient::send_binary(std::string_view bytes) { connection->write(bytes, true, true); }

void WsClient::send_piece(std::string_view piece, bool final) {
  connection->write(piece, final, false);
}

void WsClient::send_fragments(const std::vector<std::string>& pieces) {
  for (size_t index = 0; index < pieces.size(); ++index) {
    send_piece(pieces[index], index + 1 == pieces.size());
  }
}

void WsClient::send_raw(std::string_view bytes) { connection->write_raw(bytes); }

std::string WsClient::receive() {
  auto message = connection->read();
  text_message = message.second;
  return std::move(message.first);
}

std::string WsClient::ask(std::string_view request) {
  send(request);
  return receive();
}

void WsClient::ping() { connection->ping(); }

void WsClient::close() { connection->close(); }

void WsClient::vanish() { connection->vanish(); }

std::string WsClient::alpn() const { return connection->alpn(); }

std::string masked_frame(unsigned char head, std::string_view payload) {
  constexpr unsigned char kMaskBit = 0x80;
  constexpr std::string_view kKey = "\x1b\x2c\x3d\x4e";
  std::string frame(1, static_cast<char>(head));
  const size_t length = payload.size();
  const int length_bytes = length < 126 ? 0 : length < 65536 ? 2 : 8;
  const size_t marker = length_bytes == 0 ? length : length_bytes == 2 ? 126 : 127;
  frame += static_cast<char>(kMaskBit | marker);
  for (int shift = 8 * (length_bytes - 1); shift >= 0; shift -= 8) {
    frame += static_cast<char>(length >> shift);
  }
  frame += kKey;
  for (size_t index = 0; index < length; ++index) {
    frame += static_cast<char>(payload[index] ^ kKey[index % kKey.size()]);
  }
  return frame;
}
