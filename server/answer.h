#pragma once

#include <cstddef>

#include "util/text/conversion.h"
#include "util/text/text_buffer.h"

class LibManager;

/// What the channel answers with: the registry that requests are routed by, and the machine
/// architecture that they are given as "platform" (NUL-terminated). Both outlive it.
struct Service {
  LibManager& registry;
  const char* platform;
};

/// Size in bytes of the reply to the canned request, the larger of the two kinds of replies.
inline constexpr std::size_t kCannedReplySize = 2048;
/// Room that every reply has in UTF-8.
inline constexpr std::size_t kAnswerSize = kLargestGrowth * kCannedReplySize;

/// Answers a complete message (NUL-terminated, as the page sent it): writes the reply,
/// NUL-terminated UTF-8 and never empty, to `out` of at least kAnswerSize bytes. Returns its
/// length. Whatever a reader library throws becomes a reply.
std::size_t answer_message(const Service& service, const char* message, TextBuffer out);

/// Writes the failure reply with that reason (GBK) in the same way.
std::size_t answer_failure(const char* reason, TextBuffer out);
