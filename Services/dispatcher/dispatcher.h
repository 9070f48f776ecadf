#pragma once

#include <cstddef>
#include <string_view>
#include <variant>

#include "Services/dispatcher/command.h"
#include "Services/dispatcher/server_address.h"
#include "libs/library.h"
#include "util/json/failure_reply.h"
#include "util/text/charset.h"
#include "util/text/text_buffer.h"

class FunctionNames;
class LibManager;
struct AccessRules;

/// What a request is answered by, beside the registry. All outlive the answer.
struct Surroundings {
  const AccessRules& access;  ///< who may use the service
  const char* platform;       ///< machine architecture that commands tell
};

/// What becomes of a request: its reply, in the character set that it is written in, or the ticket
/// under which it comes later.
using Outcome = std::variant<GbkView, Utf8, Ticket>;

/// Answers one request. Made for one message, and dropped. Handles all texts as bytes: requests are
/// UTF-8, replies of libraries GBK.
///
/// The object is large (200 KiB); it touches no more of it than the request needs.
class Jdispatcher {
 public:
  /// Copies the request `text`. `registry` is not owned and outlives the object.
  Jdispatcher(LibManager* registry, std::string_view text);
  virtual ~Jdispatcher() = default;
  Jdispatcher(const Jdispatcher&) = delete;
  Jdispatcher& operator=(const Jdispatcher&) = delete;

  /// The whole road of the request, once: init, the function that it names, its reply. A function
  /// that is not among `allowed` is refused; null allows all. A GBK reply lies in `reply`, which
  /// must last as long as the outcome; a reply that comes later does so under `ticket`. Exceptions
  /// of a reader library pass through.
  Outcome answer(const Surroundings& surroundings, const FunctionNames* allowed, Ticket ticket,
                 TextBuffer reply);

  /// Takes the function name out of the request and builds the command text (see make_command). On
  /// failure writes the failure reply to `out` of `size` bytes, which is untouched otherwise.
  bool init(char* out, const char* platform, std::size_t size = kReplySize);

  /// Answers the request into `out` of `size` bytes, or later (see LibManager::call_cmd). Only
  /// after init. Returns whether the function succeeded; the reply is complete either way.
  bool dispatch(char* out, std::size_t size = kReplySize, Deferral* later = nullptr);

  /// Stores the back-end server's address: see store_server_address.
  bool setini(const char* ip, int port, char* errmsg, std::size_t size = kReasonSize);

  /// The function that the request names; empty until init succeeded.
  const char* function() const { return fid; }

  /// Whether the service answers the function itself, so that no library gets it.
  static bool is_own_function(std::string_view name);

 private:
  using OwnFunction = bool (Jdispatcher::*)(TextBuffer out);
  /// Null: the function is a library's.
  static OwnFunction own_function(std::string_view name);

  bool config(TextBuffer out);
  bool getconfig(TextBuffer out);
  bool refuse(TextBuffer out, GbkView reason);
  bool refuse_reserved(TextBuffer out);
  bool forward(TextBuffer out, Deferral* later);

  // Only their texts are ever looked at, so only their first bytes are cleared at construction.
  char request[QUORVEL_COMMAND_SIZE];
  LibManager* mgr;
  char command[QUORVEL_COMMAND_SIZE];
  char fid[QUORVEL_NAME_SIZE];
  bool request_fits;
};
