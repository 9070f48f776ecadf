#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "util/text/charset.h"

/// What is known of one connection's message in progress. All zero when there is none.
struct MessageAssembly {
  bool collecting;  ///< chunks have come, and not the last
  GbkView refusal;  ///< reason why the message is refused, or empty
};

/// One complete message: its text, or the reason why it is refused.
struct Message {
  std::string_view text;  ///< up to its first NUL; valid as long as the chunk that completed it
  GbkView refusal;        ///< or empty
};

/// Keeps a chunk, up to its first NUL, until the message of the connection with the descriptor
/// `sockfd` is complete. Once a message is refused the rest of its chunks is dropped.
void collect_chunk(MessageAssembly& assembly, std::int32_t sockfd, std::string_view chunk);

/// Completes the message with its final chunk.
Message complete_message(MessageAssembly& assembly, std::int32_t sockfd, std::string_view chunk);

/// Forgets the message in progress, since its connection ends.
void abandon_message(MessageAssembly& assembly, std::int32_t sockfd);
