#include "server/message_assembly.h"

#include "server/pending_table.h"
#include "util/text/messages.h"

namespace {

/// The message at hand, if it came in pieces. Made once: 140 KiB of automatic storage would cost
/// each short request the walk of the stack's guard through its pages.
char message[kMessageSize];

}  // namespace

void collect_chunk(MessageAssembly& assembly, std::int32_t sockfd, std::string_view chunk) {
  assembly.collecting = true;
  if (!assembly.refusal.empty()) return;
  const PendingEntry found = find_pending(sockfd);
  if (found.entry == kNoEntry) {
    assembly.refusal = messages::kBusy;
  } else if (!store_chunk(found.entry, sockfd, chunk.data(), chunk.size())) {
    release_pending(sockfd);
    assembly.refusal = messages::kMessageTooLong;
  }
}

Message complete_message(MessageAssembly& assembly, std::int32_t sockfd, std::string_view chunk) {
  const MessageAssembly state = assembly;
  assembly = {};
  if (!state.refusal.empty()) return {{}, state.refusal};
  if (!state.collecting) return {chunk.substr(0, chunk.find('\0')), {}};
  const PendingEntry found = find_pending(sockfd);
  if (take_message(found.entry, found.length, chunk.data(), chunk.size(), message))
    return {message, {}};
  return {{}, messages::kMessageTooLong};
}

void abandon_message(MessageAssembly& assembly, std::int32_t sockfd) {
  release_pending(sockfd);
  assembly = {};
}
