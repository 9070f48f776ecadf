#pragma once

#include <stdexcept>
#include <string>

#include "tools/call/call_options.h"

/// The service could not be reached or gave no reply; what() says why in one line.
class NoReply : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Connects to the service, sends the request as one text message and returns the reply (UTF-8,
/// its fragments joined). Throws NoReply, at the latest when the time-out has passed.
std::string exchange(const CallOptions& options);
