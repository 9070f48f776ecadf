#pragma once

#include <stdexcept>
#include <string>

#include "tools/call/call_options.h"

/// The service could not be reached or gave no reply; what() says why in one line.
class NoReply : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The service answered the handshake with status 403: its rules of access forbid the call.
class Refused : public NoReply {
 public:
  using NoReply::NoReply;
};

/// Connects to the service, sends the request as one text message and returns the reply (UTF-8,
/// its fragments joined). Throws Refused, or NoReply, at the latest when the time-out has passed.
std::string exchange(const CallOptions& options);
