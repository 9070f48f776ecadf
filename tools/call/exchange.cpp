#include "tools/call/exchange.h"

#include <libwebsockets.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

#include "util/language/language.h"
#include "util/text/format.h"

namespace {

constexpr const char* kSubprotocol = "ws";

/// One connection for one request. All methods but run() are called by lws_service() from run().
class Exchange {
 public:
  explicit Exchange(const CallOptions& call_options) : options(call_options) {
    outgoing.resize(LWS_PRE);
    outgoing.insert(outgoing.end(), options.request.begin(), options.request.end());
  }

  std::string run() {
    create_context();
    // Its first member lets the timer's callback find this object again.
    Timer timer{{}, this};
    lws_sul_schedule(context.get(), 0, &timer.entry, on_timeout,
                     options.timeout_seconds * lws_usec_t{LWS_US_PER_SEC});
    connect();
    while (!finished && lws_service(context.get(), 0) >= 0) {
    }
    lws_sul_cancel(&timer.entry);
    if (refused) throw Refused(translated("it may not be called so (403)"));
    if (!complete)
      throw NoReply(failure.empty() ? translated("the connection broke off") : failure);
    return std::move(reply);
  }

 private:
  struct Timer {
    lws_sorted_usec_list_t entry;
    Exchange* owner;
  };
  struct ContextDeleter {
    void operator()(lws_context* doomed) const { lws_context_destroy(doomed); }
  };

  void create_context() {
    lws_context_creation_info info{};
    info.port = CONTEXT_PORT_NO_LISTEN;
    info.protocols = protocols.data();
    info.user = this;
    // Covers a handshake that waits because the service is busy with another client's card.
    info.timeout_secs = static_cast<unsigned int>(options.timeout_seconds);
    info.options = LWS_SERVER_OPTION_JUST_USE_RAW_ORIGIN;
    if (options.url.tls) info.options |= LWS_SERVER_OPTION_DO_SSL_GLOBAL_INIT;
    if (!options.ca_file.empty()) info.client_ssl_ca_filepath = options.ca_file.c_str();
    context.reset(lws_create_context(&info));
    if (context == nullptr) throw NoReply(translated("the WebSocket library can't be set up"));
  }

  void connect() {
    lws_client_connect_info info{};
    info.context = context.get();
    info.address = options.url.host.c_str();
    // An IPv6 address stands in brackets in the header alone.
    const bool is_ipv6 = options.url.host.find(':') != std::string::npos;
    const std::string host = is_ipv6 ? "[" + options.url.host + "]" : options.url.host;
    info.host = host.c_str();
    if (!options.origin.empty()) info.origin = options.origin.c_str();
    info.port = options.url.port;
    info.path = options.url.path.c_str();
    info.protocol = kSubprotocol;
    info.local_protocol_name = kSubprotocol;
    info.ietf_version_or_minus_one = -1;
    info.ssl_connection = options.url.tls ? LCCSCF_USE_SSL : 0;
    info.alpn = "http/1.1";
    if (lws_client_connect_via_info(&info) == nullptr)
      fail(translated("no connection, is the host name right?"));
  }

  /// Ends run() without a reply; the first reason given is the one reported.
  void fail(const std::string& reason) {
    if (failure.empty()) failure = reason;
    finished = true;
  }

  int write_request(lws* wsi) {
    if (sent) return 0;
    sent = true;
    const size_t length = outgoing.size() - LWS_PRE;
    const int written = lws_write(wsi, outgoing.data() + LWS_PRE, length, LWS_WRITE_TEXT);
    return written < 0 || static_cast<size_t>(written) < length ? -1 : 0;
  }

  int collect_reply(lws* wsi, const char* chunk, size_t length) {
    reply.append(chunk, length);
    if (lws_is_final_fragment(wsi) == 0) return 0;
    complete = true;
    finished = true;
    return -1;
  }

  static void on_timeout(lws_sorted_usec_list_t* entry) {
    Exchange* self = reinterpret_cast<Timer*>(entry)->owner;
    self->fail(
        format_text(translated("no reply within %d seconds"), self->options.timeout_seconds));
    // The library runs timers before it waits for the sockets, and would go on to wait.
    lws_cancel_service(self->context.get());
  }

  static int on_event(lws* wsi, lws_callback_reasons reason, void* user, void* in, size_t length) {
    auto* self = static_cast<Exchange*>(lws_context_user(lws_get_context(wsi)));
    const char* bytes = static_cast<const char*>(in);
    switch (reason) {
      case LWS_CALLBACK_CLIENT_ESTABLISHED:
        return lws_callback_on_writable(wsi) < 0 ? -1 : 0;
      case LWS_CALLBACK_CLIENT_WRITEABLE:
        return self->write_request(wsi);
      case LWS_CALLBACK_CLIENT_RECEIVE:
        return self->collect_reply(wsi, bytes, length);
      case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
        self->refused = lws_http_client_http_response(wsi) == HTTP_STATUS_FORBIDDEN;
        self->fail(bytes == nullptr ? translated("no connection") : std::string(bytes, length));
        return 0;
      case LWS_CALLBACK_CLIENT_CLOSED:
        self->fail(translated("the connection was closed before a reply came"));
        return 0;
      default:
        return lws_callback_http_dummy(wsi, reason, user, in, length);
    }
  }

  const CallOptions& options;
  std::array<lws_protocols, 2> protocols{{{kSubprotocol, on_event, 0, 0, 0, nullptr, 0}, {}}};
  std::vector<unsigned char> outgoing;  ///< LWS_PRE bytes for the frame header, then the request
  std::string reply;
  std::string failure;
  bool sent = false;
  bool refused = false;                                  ///< with status 403
  bool complete = false;                                 ///< the reply's last fragment has come
  bool finished = false;                                 ///< run() may return
  std::unique_ptr<lws_context, ContextDeleter> context;  ///< last: its end calls on_event
};

}  // namespace

std::string exchange(const CallOptions& options) {
  lws_set_log_level(0, nullptr);
  // The library would send even a call to this machine through the proxy named there.
  unsetenv("http_proxy");
  return Exchange(options).run();
}
