// The table of messages in progress, against a map of texts.
// Input: operations of four bytes: which, descriptor, length of the chunk, place of a NUL in it.

#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "fuzz/input.h"
#include "server/pending_table.h"

namespace {

constexpr int kDescriptors = 120;  // more than the table has entries
constexpr std::uint8_t kWholeBytes = 247;
constexpr std::size_t kEighth = kMessageSize / 8;
constexpr std::uint8_t kPartRoom = 239;  // higher operations have room for a whole message

std::map<int, std::string> texts;  ///< of the descriptors that have an entry

/// The lengths above kWholeBytes stand for eighths of a message, up to the whole.
std::string chunk_of(std::uint8_t length, std::uint8_t nul, char filler) {
  std::string chunk(length <= kWholeBytes ? length : (length - kWholeBytes) * kEighth, filler);
  if (nul < chunk.size() && nul <= kWholeBytes) chunk[nul] = '\0';
  return chunk;
}

void require_zero(int entry, std::size_t size) {
  static const data_struct zero{};
  require(data_rec[entry].sockfd <= 0, "a released entry is free");
  require(std::memcmp(data_rec[entry].buffer, zero.buffer, size + 1) == 0,
          "a released entry is zero");
}

void release(int fd) {
  const PendingEntry found = find_pending(fd);
  release_pending(fd);
  require(!has_pending(fd), "a released connection has nothing pending");
  if (texts.erase(fd) != 0) require_zero(found.entry, static_cast<std::size_t>(found.length));
}

void store(int fd, int entry, const std::string& chunk, const std::string& joined) {
  const bool fits = joined.size() < kMessageSize;
  require(store_chunk(entry, fd, chunk.data(), chunk.size()) == fits, "store says what fits");
  if (fits) texts[fd] = joined;
}

void take(int fd, PendingEntry found, const std::string& chunk, const std::string& joined,
          std::size_t room) {
  const std::unique_ptr<char[]> out(new char[room]);
  const bool fits =
      take_message(found.entry, found.length, chunk.data(), chunk.size(), out.get(), room);
  require(fits == (joined.size() < room), "take says what fits");
  require(out.get() == (fits ? joined : ""), "take gives the whole message");
  require_zero(found.entry, static_cast<std::size_t>(found.length));
  texts.erase(fd);
}

/// The connection's entry, or the one that it would get.
PendingEntry require_same(int fd) {
  const PendingEntry found = find_pending(fd);
  const auto known = texts.find(fd);
  const bool full = known == texts.end() && texts.size() == kPendingEntries;
  require((found.entry == kNoEntry) == full, "there is an entry unless all are taken");
  const std::string text = known == texts.end() ? "" : known->second;
  require(static_cast<std::size_t>(found.length) == text.size(), "the length is known");
  require(full || data_rec[found.entry].buffer == text, "the entry holds the text");
  require(has_pending(fd) == !text.empty(), "only a text is pending");
  return found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (Input input(data, size); !input.empty();) {
    const std::uint8_t operation = input.byte();
    const int fd = input.byte() % kDescriptors + 1;
    const std::uint8_t length = input.byte();
    const std::string chunk = chunk_of(length, input.byte(), static_cast<char>('a' + fd % 26));
    const PendingEntry found = require_same(fd);
    if (found.entry == kNoEntry) continue;
    const std::string joined = data_rec[found.entry].buffer + std::string(chunk.c_str());
    if (operation % 4 == 0) {
      release(fd);
    } else if (operation % 4 == 1) {
      take(fd, found, chunk, joined, operation <= kPartRoom ? operation : kMessageSize);
    } else {
      store(fd, found.entry, chunk, joined);
    }
  }
  while (!texts.empty()) release(texts.begin()->first);
  return 0;
}
