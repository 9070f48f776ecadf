#pragma once

#include <cstddef>
#include <cstdint>

/// Size in bytes of a message's text with its terminating NUL.
inline constexpr std::size_t kMessageSize = 143360;
/// Connections that can be in the middle of a message at the same time.
inline constexpr int kPendingEntries = 100;
inline constexpr int kNoEntry = -1;

/// The text collected so far for one connection in the middle of a message.
struct data_struct {
  std::int32_t sockfd;        ///< the connection's descriptor; 0 or below: the entry is free
  char buffer[kMessageSize];  ///< NUL-terminated; the bytes after the text are zero
};

/// The table of messages in progress, keyed by socket descriptor. 14 MB of zero pages at start,
/// which cost nothing until a message is collected in them. Only the functions below change an
/// entry, from the service's one thread; nothing of theirs allocates memory.
extern data_struct data_rec[kPendingEntries];

struct PendingEntry {
  int entry;            ///< index in data_rec, or kNoEntry
  std::int32_t length;  ///< bytes of text collected in it
};

/// The connection's entry; the first free one, with length 0, when it has none; kNoEntry when none
/// is free either. `sockfd` is positive.
PendingEntry find_pending(std::int32_t sockfd);

/// Claims the entry that find_pending gave for `sockfd` and appends the chunk, up to its first NUL.
/// False, with nothing stored, when the text would not fit.
bool store_chunk(int entry, std::int32_t sockfd, const char* chunk, std::size_t length);

/// Completes the message of the entry, in which find_pending found `collected` bytes: writes the
/// text and the final chunk, up to its first NUL, NUL-terminated to `out`, and releases the entry.
/// False, with the entry released and `out` empty, when the message does not fit `out_size` bytes.
bool take_message(int entry, std::int32_t collected, const char* chunk, std::size_t length,
                  char* out, std::size_t out_size = kMessageSize);

/// Whether the connection has an entry whose text is not empty.
bool has_pending(std::int32_t sockfd);

/// Releases the connection's entry, if it has one.
void release_pending(std::int32_t sockfd);
