// A bare server that answers every message with the same text. Its context, per-connection record
// and flow control are those of the service, so that what separates the two is the service's own
// work. Usage: quorvel_echo_server PORT REPLY

#include <libwebsockets.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

volatile std::sig_atomic_t interrupted = 0;
std::string_view reply_text;

struct Connection {
  char headroom[20];
  char payload[10240];
  int payload_len;
};
static_assert(sizeof Connection::headroom >= LWS_PRE);

void on_receive(lws* wsi, Connection& connection) {
  lws_rx_flow_control(wsi, 0);
  if (lws_is_final_fragment(wsi) != 0) {
    connection.payload_len = static_cast<int>(reply_text.copy(connection.payload, 10240));
  }
  lws_callback_on_writable(wsi);
}

void on_writeable(lws* wsi, Connection& connection) {
  if (connection.payload_len != 0) {
    lws_write(wsi, reinterpret_cast<unsigned char*>(connection.payload),
              static_cast<std::size_t>(connection.payload_len), LWS_WRITE_TEXT);
    connection.payload_len = 0;
  }
  lws_rx_flow_control(wsi, 1);
}

int callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) {
  auto* connection = static_cast<Connection*>(user);
  if (reason == LWS_CALLBACK_RECEIVE) on_receive(wsi, *connection);
  if (reason == LWS_CALLBACK_SERVER_WRITEABLE) on_writeable(wsi, *connection);
  return lws_callback_http_dummy(wsi, reason, user, in, len);
}

const lws_protocols protocols[] = {{"ws", callback, sizeof(Connection), 0, 0, nullptr, 0},
                                   {nullptr, nullptr, 0, 0, 0, nullptr, 0}};

lws_context* make_context(int port) {
  lws_context_creation_info info{};
  info.port = port;
  info.protocols = protocols;
  info.options = LWS_SERVER_OPTION_HTTP_HEADERS_SECURITY_BEST_PRACTICES_ENFORCE;
  info.alpn = "http/1.1";
  info.pt_serv_buf_size = 16448;
  return lws_create_context(&info);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: quorvel_echo_server PORT REPLY\n", stderr);
    return 2;
  }
  reply_text = argv[2];
  std::signal(SIGINT, [](int) { interrupted = 1; });
  lws_set_log_level(0, nullptr);
  lws_context* context = make_context(static_cast<int>(std::strtol(argv[1], nullptr, 10)));
  if (context == nullptr) return 1;
  int result = 0;
  while (result >= 0 && interrupted == 0) result = lws_service(context, 0);
  lws_context_destroy(context);
  return 0;
}
