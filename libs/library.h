#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

#include "libs/library_status.h"
#include "util/text/charset.h"
#include "util/text/text_buffer.h"

/// Tells one call that is answered later from every other one ever made; 0 is none.
using Ticket = std::uint64_t;

/// How a call that was to be answered later has ended.
struct LateReply {
  enum class Kind {
    kReply,   ///< `text` is the library's reply
    kThrown,  ///< `text` tells what the library threw
    kFailure  ///< `text` is the reason why there is no reply
  };
  Kind kind = Kind::kReply;
  Gbk text;
};

/// What a call that may be answered later is answered under, and whether it will be.
struct Deferral {
  const Ticket ticket;
  bool taken = false;
};

/// Called with each late reply, on the service's thread, while the events of libraries are handled.
using LateReplyHandler = std::function<void(Ticket, const LateReply&)>;

/// What a library in another process threw, as the service reports it (GBK).
class LibraryException : public std::runtime_error {
 public:
  explicit LibraryException(const Gbk& text) : std::runtime_error(text.bytes()) {}
};

/// One reader library, as the registry sees it: loaded into the service, or in a helper process of
/// its own. Used on the service's one thread. Texts for people are GBK, texts that go in and out
/// are NUL-terminated.
class Library {
 public:
  virtual ~Library() = default;

  /// Loads and initialises it; once. On failure `errtext` holds the reason. What the library throws
  /// passes through.
  virtual bool init(TextBuffer errtext) = 0;
  /// The functions that it serves, as it lists them.
  virtual const char* functions() const = 0;
  /// How it does: ready, unless it can be anything else between two calls.
  virtual LibraryCondition condition() const { return {}; }

  /// Lets it answer one command: `name` is the function's, in lower case. The reply goes to
  /// `reply`, and the library's result is returned, or 0 with a failure reply. Or, of a library
  /// that answers later, the reply comes to the registry's handler under the ticket of `later`,
  /// which is then taken; the result is 0, and `reply` untouched. With null such a library gives no
  /// reply. What the library throws passes through.
  virtual int call(const char* name, const char* command, TextBuffer reply, Deferral* later) = 0;

  /// Drops a call that was to be answered later and has not begun yet. One that has runs to its
  /// end, and is answered.
  virtual void forget(Ticket) {}

  /// Ends what runs outside the service's process, in two steps, so that many can end at once: lets
  /// an idle library give back what it holds, then ends what is left at that time.
  virtual void ask_to_end() {}
  virtual void end(std::chrono::steady_clock::time_point) {}
};
