#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Services/dispatcher/dispatcher.h"
#include "Services/dispatcher/status.h"
#include "libs/library.h"
#include "util/text/conversion.h"
#include "util/text/text_buffer.h"

struct lws;

/// The bare word that stands for the canned request, and that request.
inline constexpr std::string_view kCannedName = "readcardbas";
inline constexpr std::string_view kCannedRequest =
    R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";

/// Size in bytes of the reply to the canned request, the larger of the two kinds of replies of
/// libraries.
inline constexpr std::size_t kCannedReplySize = 2048;
/// Room that every reply has in UTF-8.
inline constexpr std::size_t kAnswerSize =
    std::max(kLargestGrowth * kCannedReplySize, kStatusReplySize);

/// Answers complete messages, and remembers which connections wait for a reply that comes later.
/// Each reply is NUL-terminated UTF-8, of at least one byte, in a buffer of at least kAnswerSize.
class Answerer {
 public:
  /// `service_registry` outlives the object.
  Answerer(LibManager& service_registry, const Surroundings& service_surroundings)
      : registry(service_registry), surroundings(service_surroundings) {}
  ~Answerer() = default;
  Answerer(const Answerer&) = delete;
  Answerer& operator=(const Answerer&) = delete;

  /// Answers a message (as the page sent it, without NUL) into `out`, and returns the reply's
  /// length; 0 when `connection` is to wait, since an isolated library gives the reply later.
  /// Whatever a reader library throws becomes a reply. A function that is not among `allowed` gets
  /// a failure reply; null allows all.
  std::size_t answer(std::string_view message, const FunctionNames* allowed, lws* connection,
                     TextBuffer out);

  /// Who waits for the reply under the ticket; null when nobody does any more.
  lws* who_waits(Ticket ticket) const;
  /// Writes a reply that has come later to `out`, and returns its length. Once for each ticket
  /// under which somebody waits.
  std::size_t answer_later(Ticket ticket, const LateReply& late, TextBuffer out);
  /// The connection goes, and waits for nothing any more.
  void forget(lws* connection);

 private:
  /// A request, as the channel hands it on.
  struct Request {
    std::string_view text;
    bool canned;
    const FunctionNames* allowed;
    lws* connection;
  };
  /// A request whose reply is awaited.
  struct Awaited {
    lws* connection;
    std::string fid;  ///< as the client spelled it
    bool canned;
  };

  std::size_t answer_request(const Request& request, TextBuffer out);
  Outcome dispatch(const Request& request, TextBuffer reply);
  std::size_t convert(GbkView reply, const char* fid, TextBuffer out);

  LibManager& registry;
  const Surroundings surroundings;
  /// Of the message at hand, in a place made once: 200 KiB of automatic storage would cost each
  /// request the walk of the stack's guard through its pages.
  std::optional<Jdispatcher> dispatcher;
  /// Tickets are never used twice, so that no reply can reach a connection that has come since.
  std::unordered_map<Ticket, Awaited> awaited;
  Ticket last_ticket = 0;
};

/// Writes the failure reply with that reason to `out`, as Answerer does. Returns its length.
std::size_t answer_failure(GbkView reason, TextBuffer out);
