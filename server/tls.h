#pragma once

#include <libwebsockets.h>

#include <string>

/// Fills in what TLS takes: the certificate and key files of the working directory, TLS 1.2
/// and 1.3, ciphers with forward secrecy alone.
void use_tls(lws_context_creation_info& info);

/// Why the two files can't serve TLS, naming the file and the cure; empty when they can.
std::string tls_fault();
