#pragma once

#include <csignal>

struct RequestChannel;
struct lws_context;

/// Lets the context serve the channel until it fails or `interrupted` is set.
void serve(lws_context* context, RequestChannel& channel,
           const volatile std::sig_atomic_t& interrupted);
