#pragma once

#include <libwebsockets.h>

#include <cstddef>
#include <cstdint>
#include <unordered_set>

#include "server/answer.h"
#include "server/message_assembly.h"

/// What the channel keeps for one connection; libwebsockets allocates it zero-filled and frees it.
struct per_conn_data {
  char headroom[20];    ///< takes the frame header that lws_write puts before payload
  char payload[10240];  ///< the last chunk's first bytes, then the UTF-8 reply
  std::int32_t payload_len;
  char binary;  ///< the last frame was a binary one
  char final;   ///< the last chunk completed its message
  bool paused;  ///< nothing more is read from it at present
  MessageAssembly assembly;
  const FunctionNames* allowed;  ///< what its site may call; null: everything
};

/// The protocols that the context serves: "ws" alone, which therefore takes the port's HTTP
/// callbacks too. The context's user pointer leads to its RequestChannel.
extern const lws_protocols protocols[];

/// What the connections of a context have in common; outlives the context.
struct RequestChannel {
  LibManager& registry;
  const AccessRules& access;
  Answerer answers;
  std::unordered_set<lws*> connections = {};

  /// Sends the replies that come later, and lets the context watch the registry's events. Once,
  /// after the context has been created. False when libwebsockets can't watch them.
  bool watch_late_replies(lws_context* context);

  /// Ends the connections that have broken off while nothing is read from them. libwebsockets does
  /// so itself, but from 4.2 on not where it holds input of theirs: there it would spin for ever.
  /// About once a second.
  void end_dead_connections();
};

/// Protocol callback of the request channel: collects the chunks of each message, answers every
/// complete message with exactly one UTF-8 text message, and holds each connection to one message
/// in hand. Called by libwebsockets on the service's one thread.
int callback_minimal_broker(lws* wsi, lws_callback_reasons reason, void* user, void* in,
                            std::size_t len);
