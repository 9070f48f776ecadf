#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "readers/common/reply.h"

/// What stands behind the entry points of a reader library, from init to uninit.
class Reader {
 public:
  virtual ~Reader() = default;

  /// Answers one request. `command` is the request's JSON object without its "fid". Every failure
  /// becomes a failure reply; only memory exhaustion is thrown.
  virtual Reply answer(const std::string& function, std::string_view command) = 0;
};

/// Each library defines these two.
///
/// The names of its functions, each followed by a line feed. Throws Failure when the library can't
/// be loaded; its text is for the service's log.
std::string function_list();
/// Throws when the library can't be used.
std::unique_ptr<Reader> make_reader();
