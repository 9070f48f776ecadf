#include "server/request_channel.h"

#include <fcntl.h>
#include <poll.h>

#include <cstring>
#include <string>
#include <vector>

#include "access/access_rules.h"
#include "libs/lib_manager.h"
#include "server/admission.h"
#include "server/connection_limit.h"
#include "server/pending_table.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/bytes.h"

static_assert(sizeof per_conn_data::headroom >= LWS_PRE, "lws_write needs its room in front");
static_assert(sizeof per_conn_data::payload >= kAnswerSize, "every reply fits");

namespace {

constexpr std::size_t kPeerAddressSize = 128;

/// Time without progress after which an unfinished message is dropped with its connection, lest it
/// keep its place in the table for ever.
constexpr lws_usec_t kUnfinishedLimitUs = 30 * LWS_US_PER_SEC;

void log_peer(lws* wsi) {
  static constexpr char kLine[] = "Connected client ip = %s, http response: %d\n";
  if (!log_admits(LogLevel::kUser, kLine)) return;
  char peer[kPeerAddressSize] = {};
  lws_get_peer_simple(wsi, peer, sizeof peer);
  log_admitted(LogLevel::kUser, kLine, peer, static_cast<int>(lws_http_client_http_response(wsi)));
}

RequestChannel& channel_of(lws* wsi) {
  return *static_cast<RequestChannel*>(lws_context_user(lws_get_context(wsi)));
}

const AccessRules& rules_of(lws* wsi) { return channel_of(wsi).access; }

void pause(lws* wsi, per_conn_data& conn) {
  lws_rx_flow_control(wsi, 0);
  conn.paused = true;
}

void read_on(lws* wsi, per_conn_data& conn) {
  lws_rx_flow_control(wsi, 1);
  conn.paused = false;
}

/// Sets the connection's reply to the complete message, unless that comes later.
void answer(lws* wsi, per_conn_data& conn, const Message& message) {
  const std::size_t length =
      message.refusal.empty()
          ? channel_of(wsi).answers.answer(message.text, conn.allowed, wsi, conn.payload)
          : answer_failure(message.refusal, conn.payload);
  conn.payload_len = static_cast<std::int32_t>(length);
}

/// Sets the reply that has come under the ticket, unless its connection has gone.
void on_late_reply(Answerer& answers, Ticket ticket, const LateReply& late) {
  lws* wsi = answers.who_waits(ticket);
  if (wsi == nullptr) return;
  auto& conn = *static_cast<per_conn_data*>(lws_wsi_user(wsi));
  conn.payload_len = static_cast<std::int32_t>(answers.answer_later(ticket, late, conn.payload));
  lws_callback_on_writable(wsi);
}

void on_closed(lws* wsi, per_conn_data& conn) {
  abandon_message(conn.assembly, lws_get_socket_fd(wsi));
  channel_of(wsi).connections.erase(wsi);
  channel_of(wsi).answers.forget(wsi);
}

void on_receive(lws* wsi, per_conn_data& conn, std::string_view chunk) {
  log_peer(wsi);
  conn.final = lws_is_final_fragment(wsi) != 0 ? 1 : 0;
  conn.binary = lws_frame_is_binary(wsi) != 0 ? 1 : 0;
  // Only the write step reads on, so a connection has one chunk and one message in hand.
  pause(wsi, conn);
  // With TLS a chunk can be larger than the record's payload.
  conn.payload_len = static_cast<std::int32_t>(chunk.copy(conn.payload, sizeof conn.payload));
  const int fd = lws_get_socket_fd(wsi);
  if (conn.final == 1) {
    if (conn.assembly.collecting) lws_set_timer_usecs(wsi, LWS_SET_TIMER_USEC_CANCEL);
    answer(wsi, conn, complete_message(conn.assembly, fd, chunk));
  } else {
    const bool progress = !conn.assembly.collecting || !chunk.empty();
    if (progress) lws_set_timer_usecs(wsi, kUnfinishedLimitUs);
    collect_chunk(conn.assembly, fd, chunk);
  }
  lws_callback_on_writable(wsi);
}

/// Whether the connection, whose timer has run out, is to end: its message makes no progress.
bool is_stuck(lws* wsi, const per_conn_data& conn) {
  if (!conn.assembly.collecting) return false;
  // When a reader held up the service itself, the rest of the message may be waiting.
  pollfd input = {lws_get_socket_fd(wsi), POLLIN, 0};
  if (poll(&input, 1, 0) > 0) {
    lws_set_timer_usecs(wsi, LWS_US_PER_SEC);
    return false;
  }
  log_warning("a client's unfinished message made no progress for %d s: connection closed\n",
              static_cast<int>(kUnfinishedLimitUs / LWS_US_PER_SEC));
  return true;
}

void on_writeable(lws* wsi, per_conn_data& conn) {
  // A message whose text is still empty is in progress as well, although the table can't tell.
  if (conn.assembly.collecting || has_pending(lws_get_socket_fd(wsi))) {
    read_on(wsi, conn);
  } else if (conn.payload_len != 0) {
    const auto length = static_cast<std::size_t>(conn.payload_len);
    lws_write(wsi, as_bytes(conn.payload), length, LWS_WRITE_TEXT);
    std::memset(conn.payload, 0, length);
    conn.payload_len = 0;
    read_on(wsi, conn);
  }
}

/// An upgrade to HTTP/2 over plain TCP would leave an idle connection without any time-out. Without
/// its name libwebsockets takes the request for a plain one.
void refuse_http2(char* protocol) {
  if (ascii_lower(protocol) == "h2c") protocol[0] = '\0';
}

}  // namespace

int callback_minimal_broker(lws* wsi, lws_callback_reasons reason, void* user, void* in,
                            std::size_t len) {
  auto* conn = static_cast<per_conn_data*>(user);
  switch (reason) {
    case LWS_CALLBACK_ESTABLISHED:
      log_peer(wsi);
      // A stream of an HTTP/2 connection has no descriptor of its own, and flow control does not
      // hold it: replies would be lost.
      if (lws_get_socket_fd(wsi) <= 0) return -1;
      channel_of(wsi).connections.insert(wsi);
      break;
    case LWS_CALLBACK_RECEIVE:
      on_receive(wsi, *conn, {static_cast<const char*>(in), len});
      break;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      on_writeable(wsi, *conn);
      break;
    case LWS_CALLBACK_CLOSED:
      on_closed(wsi, *conn);
      break;
    case LWS_CALLBACK_FILTER_NETWORK_CONNECTION:
      if (connection_may_have(static_cast<lws_filter_network_conn_args*>(user)->accept_fd)) break;
      log_warning("too many connections for the limit of open files: one more was refused\n");
      return -1;
    case LWS_CALLBACK_TIMER:
      if (is_stuck(wsi, *conn)) return -1;
      break;
    case LWS_CALLBACK_HTTP_CONFIRM_UPGRADE:
      refuse_http2(static_cast<char*>(in));
      if (!admit_upgrade(wsi, rules_of(wsi), static_cast<char*>(in))) return 1;
      break;
    case LWS_CALLBACK_FILTER_PROTOCOL_CONNECTION: {
      // Again, and with the record that the connection keeps: no way past the first check is open.
      const Rights rights = connection_rights(wsi, rules_of(wsi));
      if (!rights.admitted) return 1;
      conn->allowed = rights.functions;
      break;
    }
    case LWS_CALLBACK_FILTER_HTTP_CONNECTION:
      if (!admit_request(wsi, rules_of(wsi))) return 1;
      break;
    // libwebsockets 4.1 spins on input that it still holds while it ends a TLS connection: reading
    // stops with the old binding to a protocol, and goes on with a new one.
    case LWS_CALLBACK_HTTP_DROP_PROTOCOL:
    case LWS_CALLBACK_WS_SERVER_DROP_PROTOCOL:
      lws_rx_flow_control(wsi, 0);
      break;
    case LWS_CALLBACK_HTTP_BIND_PROTOCOL:
    case LWS_CALLBACK_WS_SERVER_BIND_PROTOCOL:
      lws_rx_flow_control(wsi, 1);
      break;
    case LWS_CALLBACK_RAW_RX_FILE:
      channel_of(wsi).registry.handle_events();
      return 0;
    case LWS_CALLBACK_PROTOCOL_DESTROY:
      return 0;
    default:
      break;
  }
  return lws_callback_http_dummy(wsi, reason, user, in, len);
}

bool RequestChannel::watch_late_replies(lws_context* context) {
  registry.set_late_reply_handler(
      [this](Ticket ticket, const LateReply& late) { on_late_reply(answers, ticket, late); });
  const int events = registry.event_descriptor();
  if (events < 0) return true;
  // libwebsockets closes what it is given.
  lws_sock_file_fd_type descriptor{};
  descriptor.filefd = fcntl(events, F_DUPFD_CLOEXEC, 0);
  lws_vhost* vhost = lws_get_vhost_by_name(context, "default");
  return descriptor.filefd >= 0 && vhost != nullptr &&
         lws_adopt_descriptor_vhost(vhost, LWS_ADOPT_RAW_FILE_DESC, descriptor, protocols[0].name,
                                    nullptr) != nullptr;
}

void RequestChannel::end_dead_connections() {
  std::vector<lws*> dead;  // ending one takes it out of the set
  for (lws* wsi : connections) {
    if (!static_cast<per_conn_data*>(lws_wsi_user(wsi))->paused) continue;
    pollfd ended = {lws_get_socket_fd(wsi), 0, 0};
    if (poll(&ended, 1, 0) > 0) dead.push_back(wsi);
  }
  for (lws* wsi : dead) lws_set_timeout(wsi, PENDING_TIMEOUT_USER_REASON_BASE, LWS_TO_KILL_SYNC);
}

const lws_protocols protocols[] = {
    {"ws", callback_minimal_broker, sizeof(per_conn_data), 0, 0, nullptr, 0},
    {nullptr, nullptr, 0, 0, 0, nullptr, 0},
};
