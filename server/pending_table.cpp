#include "server/pending_table.h"

#include <algorithm>
#include <cstring>

data_struct data_rec[kPendingEntries];

namespace {

/// What every look-up needs, side by side: the entries themselves lie 140 KiB apart, and a scan
/// across them would touch a hundred cold pages.
struct Slot {
  std::int32_t sockfd;
  std::int32_t length;
};
Slot slots[kPendingEntries];

/// Behind the last entry that is taken: what most look-ups, between messages in pieces, need not
/// pass.
int taken_end = 0;

void release(int entry) {
  std::memset(data_rec[entry].buffer, 0, static_cast<std::size_t>(slots[entry].length));
  data_rec[entry].sockfd = -1;
  slots[entry] = {-1, 0};
  while (taken_end > 0 && slots[taken_end - 1].sockfd <= 0) --taken_end;
}

}  // namespace

PendingEntry find_pending(std::int32_t sockfd) {
  int first_free = taken_end < kPendingEntries ? taken_end : kNoEntry;
  for (int entry = taken_end - 1; entry >= 0; --entry) {
    if (slots[entry].sockfd <= 0) {
      first_free = entry;
    } else if (slots[entry].sockfd == sockfd) {
      return {entry, slots[entry].length};
    }
  }
  return {first_free, 0};
}

bool store_chunk(int entry, std::int32_t sockfd, const char* chunk, std::size_t length) {
  Slot& slot = slots[entry];
  const std::size_t text = strnlen(chunk, length);
  const auto used = static_cast<std::size_t>(slot.length);
  if (used + text >= sizeof data_rec[entry].buffer) return false;
  std::memcpy(data_rec[entry].buffer + used, chunk, text);
  data_rec[entry].sockfd = sockfd;
  slot = {sockfd, static_cast<std::int32_t>(used + text)};
  taken_end = std::max(taken_end, entry + 1);
  return true;
}

bool take_message(int entry, std::int32_t collected, const char* chunk, std::size_t length,
                  char* out, std::size_t out_size) {
  const std::size_t text = strnlen(chunk, length);
  const auto used = static_cast<std::size_t>(collected);
  const bool fits = used + text < out_size;
  if (fits) {
    std::memcpy(out, data_rec[entry].buffer, used);
    std::memcpy(out + used, chunk, text);
  }
  out[fits ? used + text : 0] = '\0';
  if (slots[entry].sockfd > 0) release(entry);
  return fits;
}

bool has_pending(std::int32_t sockfd) {
  const PendingEntry found = find_pending(sockfd);
  return found.length > 0;
}

void release_pending(std::int32_t sockfd) {
  const PendingEntry found = find_pending(sockfd);
  if (found.entry != kNoEntry && slots[found.entry].sockfd > 0) release(found.entry);
}
