#include "libs/helper_frames.h"

#include <cstring>

namespace {

template <typename Number>
void append(std::string& packet, Number number) {
  packet.append(reinterpret_cast<const char*>(&number), sizeof number);
}

/// Takes a number off the front of the packet; false when it is too short.
template <typename Number>
bool take(std::string_view& packet, Number& number) {
  if (packet.size() < sizeof number) return false;
  std::memcpy(&number, packet.data(), sizeof number);
  packet.remove_prefix(sizeof number);
  return true;
}

bool holds_zero(std::string_view text) { return text.find('\0') != std::string_view::npos; }

}  // namespace

std::string write_frame(const CommandFrame& frame) {
  std::string packet;
  packet.reserve(3 * sizeof(std::uint32_t) + frame.name.size() + frame.command.size());
  append(packet, frame.number);
  append(packet, frame.reply_size);
  append(packet, static_cast<std::uint32_t>(frame.name.size()));
  return packet.append(frame.name).append(frame.command);
}

std::string write_frame(const HelperFrame& frame) {
  std::string packet;
  append(packet, frame.word);
  append(packet, frame.number);
  return packet.append(frame.text.bytes());
}

std::optional<CommandFrame> read_command_frame(std::string_view packet) {
  CommandFrame frame;
  std::uint32_t name_size = 0;
  if (!take(packet, frame.number) || !take(packet, frame.reply_size) || !take(packet, name_size))
    return {};
  if (name_size >= QUORVEL_NAME_SIZE || name_size > packet.size()) return {};
  if (packet.size() - name_size >= QUORVEL_COMMAND_SIZE || holds_zero(packet)) return {};
  if (frame.reply_size == 0 || frame.reply_size > kLargestReply) return {};
  frame.name = packet.substr(0, name_size);
  frame.command = packet.substr(name_size);
  return frame;
}

std::optional<HelperFrame> read_helper_frame(std::string_view packet) {
  HelperFrame frame;
  if (!take(packet, frame.word) || !take(packet, frame.number)) return {};
  if (frame.word > HelperWord::kThrown || packet.size() >= kFunctionListSize || holds_zero(packet))
    return {};
  frame.text = Gbk(std::string(packet));
  return frame;
}
