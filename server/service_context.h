#pragma once

#include <libwebsockets.h>

#include <memory>

#include "server/request_channel.h"

struct ContextDestroyer {
  void operator()(lws_context* context) const { lws_context_destroy(context); }
};
using UniqueContext = std::unique_ptr<lws_context, ContextDestroyer>;

/// The context that serves the channel, and the page's files, on the port, as the command line asks
/// for; null, with the reason in the log, when it can't listen there.
UniqueContext create_context(int argc, const char** argv, int port, bool loopback_alone,
                             RequestChannel& channel);
