#pragma once

#include <cstddef>
#include <string_view>

#include "Services/dispatcher/command.h"
#include "Services/dispatcher/settings.h"
#include "libs/library.h"
#include "util/json/failure_reply.h"
#include "util/text/text_buffer.h"

class LibManager;
struct AccessRules;

/// Answers one request. Made for one message, used as constructor, init, dispatch (only when init
/// returned true), and dropped. Handles all texts as bytes: requests are UTF-8, replies GBK.
///
/// The object is large (200 KiB); it touches no more of it than the request needs.
class Jdispatcher {
 public:
  /// Copies the request `text`. `registry` is not owned and outlives the object.
  Jdispatcher(LibManager* registry, std::string_view text);
  virtual ~Jdispatcher() = default;
  Jdispatcher(const Jdispatcher&) = delete;
  Jdispatcher& operator=(const Jdispatcher&) = delete;

  /// Takes the function name out of the request and builds the command text (see make_command). On
  /// failure writes the failure reply to `out` of `size` bytes, which is untouched otherwise.
  bool init(char* out, const char* platform, std::size_t size = kReplySize);

  /// Hands the request to an isolated library, whose reply comes later under `ticket`: see Library.
  /// kNever when the function is none of such a library; dispatch() has the answer then.
  Library::Later dispatch_later(Ticket ticket, std::size_t size = kReplySize);

  /// Answers a function whose replies may be longer than others: writes the reply as UTF-8 to
  /// `out`, which has room for kStatusReplySize bytes. False, with `out` untouched, when the
  /// request names no such function; dispatch() has the answer then.
  bool dispatch_long(const AccessRules& access, TextBuffer out);

  /// Answers the request into `out` of `size` bytes. Returns whether the function succeeded; the
  /// reply is complete either way. Exceptions of a reader library pass through.
  bool dispatch(char* out, std::size_t size = kReplySize);

  /// Stores the back-end server's address: see store_server_address.
  bool setini(const char* ip, int port, char* errmsg, std::size_t size = kReasonSize);

  /// The function that the request names; empty until init succeeded.
  const char* function() const { return fid; }

  /// Whether the service answers the function itself, so that no library gets it.
  static bool is_own_function(std::string_view name);

 private:
  /// One of the service's own functions.
  struct Own {
    std::string_view name;
    bool (Jdispatcher::*answer)(TextBuffer out);  ///< null: dispatch_long() answers
  };
  static const Own* own_function(std::string_view name);

  bool refuse(TextBuffer out);

  bool forward(TextBuffer out);
  bool config(TextBuffer out);
  bool getconfig(TextBuffer out);

  // Only their texts are ever looked at, so only their first bytes are cleared at construction.
  char request[QUORVEL_COMMAND_SIZE];
  LibManager* mgr;
  char command[QUORVEL_COMMAND_SIZE];
  char fid[QUORVEL_NAME_SIZE];
  bool request_fits;
  const Own* own = nullptr;  ///< what `fid` names; null when it is a library's
};
