// The packets between the service and a helper process, from whoever wrote into that helper's
// memory. Input: the packet, taken for one of either direction.

#include <string>

#include "fuzz/input.h"
#include "libs/helper_frames.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string packet = input.rest();
  if (const auto frame = read_command_frame(packet)) {
    require(frame->name.size() < QUORVEL_NAME_SIZE, "a name keeps to its limit");
    require(frame->command.size() < QUORVEL_COMMAND_SIZE, "a command keeps to its limit");
    require(frame->reply_size > 0 && frame->reply_size <= kLargestReply, "so does the reply");
    require(write_frame(*frame) == packet, "what was read is what was written");
  }
  if (const auto frame = read_helper_frame(packet)) {
    require(frame->text.bytes().size() < kFunctionListSize, "a text keeps to its limit");
    require(frame->text.bytes().find('\0') == std::string::npos, "a text has no end within");
    require(write_frame(*frame) == packet, "what was read is what was written");
  }
  return 0;
}
