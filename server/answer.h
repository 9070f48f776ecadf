#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "Services/dispatcher/status.h"
#include "libs/library.h"
#include "util/text/conversion.h"
#include "util/text/text_buffer.h"

class FunctionNames;
class LibManager;
struct AccessRules;

/// What the channel answers with: the registry that requests are routed by, who may use the
/// service, and the machine architecture that requests are given as "platform" (NUL-terminated).
/// All outlive it.
struct Service {
  LibManager& registry;
  const AccessRules& access;
  const char* platform;
};

/// Size in bytes of the reply to the canned request, the larger of the two kinds of replies of
/// libraries.
inline constexpr std::size_t kCannedReplySize = 2048;
/// Room that every reply has in UTF-8.
inline constexpr std::size_t kAnswerSize =
    std::max(kLargestGrowth * kCannedReplySize, kStatusReplySize);

/// What becomes of a message: its reply's length in UTF-8, never 0, or a reply that comes later.
struct Answer {
  std::size_t length = 0;
  Ticket ticket = 0;  ///< not 0: the reply comes later, under it
};

/// Answers a complete message (as the page sent it, without NUL): writes the reply,
/// NUL-terminated UTF-8, to `out` of at least kAnswerSize bytes, unless an isolated library gives
/// it later. Whatever a reader library throws becomes a reply. A function that is not among
/// `allowed` gets a failure reply; null allows all.
Answer answer_message(const Service& service, std::string_view message,
                      const FunctionNames* allowed, TextBuffer out);

/// Writes a reply that has come later in the same way. Returns its length. Each ticket once.
std::size_t answer_later(const Service& service, Ticket ticket, const LateReply& late,
                         TextBuffer out);

/// Nobody waits for the reply any more.
void forget_answer(const Service& service, Ticket ticket);

/// Writes the failure reply with that reason (GBK) in the same way. Returns its length.
std::size_t answer_failure(const char* reason, TextBuffer out);
