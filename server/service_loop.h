#pragma once

#include <csignal>

struct lws_context;

/// Lets the context serve until it fails or `interrupted` is set.
void serve(lws_context* context, const volatile std::sig_atomic_t& interrupted);
