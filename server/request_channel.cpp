#include "server/request_channel.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "Services/dispatcher/dispatcher.h"
#include "server/pending_table.h"
#include "util/messages.h"
#include "util/reply.h"
#include "util/text_conversion.h"

static_assert(sizeof per_conn_data::headroom >= LWS_PRE, "lws_write needs its room in front");

namespace {

constexpr std::string_view kCannedName = "readcardbas";
constexpr char kCannedRequest[] = R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
constexpr std::size_t kShortestRequest = 6;  // bytes of a JSON request
constexpr std::size_t kCannedReplySize = 2048;
constexpr std::size_t kPeerAddressSize = 128;

// A reply's UTF-8 form takes at most twice its GBK length.
static_assert(sizeof per_conn_data::payload >= 2 * kCannedReplySize);

void log_peer(lws* wsi) {
  if (!lwsl_visible(LLL_USER)) return;
  char peer[kPeerAddressSize] = {};
  lws_get_peer_simple(wsi, peer, sizeof peer);
  lwsl_user("Connected client ip = %s, http response: %d\n", peer,
            static_cast<int>(lws_http_client_http_response(wsi)));
}

/// Sets the connection's reply to the GBK text (below kCannedReplySize), in UTF-8.
void set_reply(per_conn_data& conn, const char* reply) {
  cpy2utfa(conn.payload, reply);
  // A text that is not GBK may fill its room to the last byte; behind it lies the request's chunk.
  conn.payload[2 * std::strlen(reply)] = '\0';
  conn.payload_len = static_cast<std::int32_t>(std::strlen(conn.payload));
}

void set_failure(per_conn_data& conn, const char* reason) {
  char reply[kReplySize];
  write_failure(reply, sizeof reply, reason);
  set_reply(conn, reply);
  if (conn.payload_len > 0) return;
  write_failure(conn.payload, sizeof conn.payload, messages::kNoConversion);
  conn.payload_len = static_cast<std::int32_t>(std::strlen(conn.payload));
}

/// Writes what the client is told of an exception to `reply` of `size` bytes, and prints it. The
/// canned request gets the bare text.
void write_exception(const std::exception* error, bool canned, char* reply, std::size_t size) {
  const std::string text = exception_text(messages::kException, error);
  if (canned) {
    copy_text(reply, size, text.substr(0, size - 1));
  } else {
    write_failure(reply, size, text);
  }
  std::fputs(reply, stdout);
}

void run_dispatcher(const char* request, char* reply, std::size_t size) {
  Jdispatcher dispatcher(&libmanager, request);
  if (dispatcher.init(reply, xtjg, size)) dispatcher.dispatch(reply, size);
}

void answer_request(per_conn_data& conn, const char* request, bool canned) {
  char reply[kCannedReplySize];
  const std::size_t size = canned ? kCannedReplySize : kReplySize;
  std::memset(reply, 0, size);
  try {
    run_dispatcher(request, reply, size);
  } catch (const std::exception& error) {
    write_exception(&error, canned, reply, size);
  } catch (...) {
    write_exception(nullptr, canned, reply, size);
  }
  set_reply(conn, reply);
}

/// Sets the connection's reply to the complete message.
void answer(per_conn_data& conn, const char* message) {
  if (std::strncmp(message, kCannedName.data(), kCannedName.size()) == 0) {
    answer_request(conn, kCannedRequest, true);
  } else if (message[0] == '{' && strnlen(message, kShortestRequest) == kShortestRequest) {
    answer_request(conn, message, false);
  } else {
    std::printf("无法识别的指令%s\n", message);
    set_failure(conn, messages::kUnrecognised);
  }
  // A client that gets nothing would wait for ever.
  if (conn.payload_len == 0) set_failure(conn, messages::kUnusableReply);
}

/// Keeps a chunk until its message is complete. Once a message is refused the rest of its chunks
/// is dropped; the refusal is its one reply, after its final chunk.
void collect(per_conn_data& conn, int fd, const char* chunk, std::size_t len) {
  conn.collecting = true;
  if (conn.refusal != nullptr) return;
  const PendingEntry found = find_pending(fd);
  if (found.entry == kNoEntry) {
    conn.refusal = messages::kBusy;
  } else if (!store_chunk(found.entry, fd, chunk, len)) {
    release_pending(fd);
    conn.refusal = messages::kMessageTooLong;
  }
}

/// Completes the message with its final chunk and sets the connection's reply.
void complete(per_conn_data& conn, int fd, const char* chunk, std::size_t len) {
  char message[kMessageSize];  // not cleared: 140 KiB would cost a short request dear
  const bool collected = conn.collecting;
  conn.collecting = false;
  if (conn.refusal == nullptr && collected) {
    const PendingEntry found = find_pending(fd);
    if (!take_message(found.entry, found.length, chunk, len, message))
      conn.refusal = messages::kMessageTooLong;
  } else if (!copy_text(message, sizeof message, {chunk, strnlen(chunk, len)})) {
    conn.refusal = messages::kMessageTooLong;
  }
  if (conn.refusal == nullptr) {
    answer(conn, message);
  } else {
    set_failure(conn, conn.refusal);
    conn.refusal = nullptr;
  }
}

void on_receive(lws* wsi, per_conn_data& conn, const char* chunk, std::size_t len) {
  log_peer(wsi);
  conn.final = lws_is_final_fragment(wsi) != 0 ? 1 : 0;
  conn.binary = lws_frame_is_binary(wsi) != 0 ? 1 : 0;
  // Only the write step reads on, so a connection has one chunk and one message in hand.
  lws_rx_flow_control(wsi, 0);
  // With TLS a chunk can be larger than the record's payload.
  conn.payload_len = static_cast<std::int32_t>(std::min(len, sizeof conn.payload));
  std::copy_n(chunk, conn.payload_len, conn.payload);
  const int fd = lws_get_socket_fd(wsi);
  if (conn.final == 1) {
    complete(conn, fd, chunk, len);
  } else {
    collect(conn, fd, chunk, len);
  }
  lws_callback_on_writable(wsi);
}

void on_writeable(lws* wsi, per_conn_data& conn) {
  // A message whose text is still empty is in progress as well, although the table can't tell.
  if (conn.collecting || has_pending(lws_get_socket_fd(wsi))) {
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
      on_receive(wsi, *conn, static_cast<const char*>(in), len);
      break;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      on_writeable(wsi, *conn);
      break;
    case LWS_CALLBACK_CLOSED:
      release_pending(lws_get_socket_fd(wsi));
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
