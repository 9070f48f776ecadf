// The helper program of an isolated reader library: loads the library through the service's own
// binding, and lets it answer commands one after the other. Started by the service alone.

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "libs/funlib.h"
#include "libs/helper_frames.h"
#include "util/log/log.h"
#include "util/os/child.h"
#include "util/text/bytes.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

/// Ends the process when the service has gone.
void send_frame(const HelperFrame& frame) {
  const std::string packet = write_frame(frame);
  if (send(kHelperSocket, packet.data(), packet.size(), MSG_NOSIGNAL) < 0) _exit(EXIT_FAILURE);
}

/// The next command; nothing once the service has closed its end.
std::optional<CommandFrame> next_command() {
  static char packet[kLongestCommandFrame];
  const ssize_t size = recv(kHelperSocket, packet, sizeof packet, 0);
  if (size <= 0) return {};
  return read_command_frame({packet, static_cast<std::size_t>(size)});
}

HelperFrame load(Funlib& library) {
  char errtext[QUORVEL_ERROR_SIZE] = {};
  try {
    if (library.init(errtext)) return {HelperWord::kReady, 0, Gbk(library.functions())};
    return {HelperWord::kRefused, 0, Gbk(errtext)};
  } catch (...) {
    return {HelperWord::kThrown, 0, current_exception_text(messages::kException)};
  }
}

HelperFrame answer(Funlib& library, const CommandFrame& command) {
  static unsigned char reply[kLargestReply];
  std::memset(reply, 0, command.reply_size);
  try {
    library.call_cmd(as_bytes(command.name.c_str()), as_bytes(command.command.c_str()), reply,
                     command.reply_size);
    return {HelperWord::kReply, command.number, Gbk(reinterpret_cast<const char*>(reply))};
  } catch (...) {
    const Gbk text = current_exception_text(messages::kException);
    return {HelperWord::kThrown, command.number,
            Gbk(text.bytes().substr(0, command.reply_size - 1))};
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    log_bare_error("quorvel-host: the card-reading service starts this program\n");
    return EXIT_FAILURE;
  }
  settle_as_child(static_cast<pid_t>(std::strtol(argv[2], nullptr, 10)));
  std::signal(SIGINT, SIG_IGN);  // the service ends its helpers itself
  settle_log();
  set_log_charset_utf8(std::strcmp(argv[3], kHelperLogsUtf8) == 0);
  Funlib library(argv[1]);
  const HelperFrame loaded = load(library);
  send_frame(loaded);
  if (loaded.word != HelperWord::kReady) return EXIT_FAILURE;
  while (const auto command = next_command()) send_frame(answer(library, *command));
  return EXIT_SUCCESS;
}
