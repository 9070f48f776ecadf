#include "server/request_channel.h"

#include <algorithm>
#include <cstring>

#include "server/answer.h"
#include "server/pending_table.h"
#include "util/log/log.h"

static_assert(sizeof per_conn_data::headroom >= LWS_PRE, "lws_write needs its room in front");
static_assert(sizeof per_conn_data::payload >= kAnswerSize, "every reply fits");

namespace {

constexpr std::size_t kPeerAddressSize = 128;

void log_peer(lws* wsi) {
  static constexpr char kLine[] = "Connected client ip = %s, http response: %d\n";
  if (!log_admits(LogLevel::kUser, kLine)) return;
  char peer[kPeerAddressSize] = {};
  lws_get_peer_simple(wsi, peer, sizeof peer);
  log_admitted(LogLevel::kUser, kLine, peer, static_cast<int>(lws_http_client_http_response(wsi)));
}

const Service& service_of(lws* wsi) {
  return *static_cast<const Service*>(lws_context_user(lws_get_context(wsi)));
}

/// Sets the connection's reply to the complete message.
void answer(lws* wsi, per_conn_data& conn, const Message& message) {
  const std::size_t length = message.text != nullptr
                                 ? answer_message(service_of(wsi), message.text, conn.payload)
                                 : answer_failure(message.refusal, conn.payload);
  conn.payload_len = static_cast<std::int32_t>(length);
}

void on_receive(lws* wsi, per_conn_data& conn, std::string_view chunk) {
  log_peer(wsi);
  conn.final = lws_is_final_fragment(wsi) != 0 ? 1 : 0;
  conn.binary = lws_frame_is_binary(wsi) != 0 ? 1 : 0;
  // Only the write step reads on, so a connection has one chunk and one message in hand.
  lws_rx_flow_control(wsi, 0);
  // With TLS a chunk can be larger than the record's payload.
  conn.payload_len = static_cast<std::int32_t>(chunk.copy(conn.payload, sizeof conn.payload));
  const int fd = lws_get_socket_fd(wsi);
  if (conn.final == 1) {
    answer(wsi, conn, complete_message(conn.assembly, fd, chunk));
  } else {
    collect_chunk(conn.assembly, fd, chunk);
  }
  lws_callback_on_writable(wsi);
}

void on_writeable(lws* wsi, per_conn_data& conn) {
  // A message whose text is still empty is in progress as well, although the table can't tell.
  if (conn.assembly.collecting || has_pending(lws_get_socket_fd(wsi))) {
    lws_rx_flow_control(wsi, 1);
  } else if (conn.payload_len != 0) {
    const auto length = static_cast<std::size_t>(conn.payload_len);
    lws_write(wsi, reinterpret_cast<unsigned char*>(conn.payload), length, LWS_WRITE_TEXT);
    std::memset(conn.payload, 0, length);
    conn.payload_len = 0;
    lws_rx_flow_control(wsi, 1);
  }
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
      break;
    case LWS_CALLBACK_RECEIVE:
      on_receive(wsi, *conn, {static_cast<const char*>(in), len});
      break;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      on_writeable(wsi, *conn);
      break;
    case LWS_CALLBACK_CLOSED:
      abandon_message(conn->assembly, lws_get_socket_fd(wsi));
      break;
    case LWS_CALLBACK_PROTOCOL_DESTROY:
      return 0;
    default:
      break;
  }
  return lws_callback_http_dummy(wsi, reason, user, in, len);
}

const lws_protocols protocols[] = {
    {"ws", callback_minimal_broker, sizeof(per_conn_data), 0, 0, nullptr, 0},
    {nullptr, nullptr, 0, 0, 0, nullptr, 0},
};
