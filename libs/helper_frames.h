#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "libs/funlib.h"
#include "util/text/charset.h"

/// The helper's descriptor of its socket to the service. Its arguments: the library's path, the
/// service's process number, and kHelperLogsUtf8 or an empty text.
inline constexpr int kHelperSocket = 3;
inline constexpr char kHelperLogsUtf8[] = "utf-8";

// The messages between the service and a helper process, one in each packet of their socket. Both
// run on one machine and come from one build, so numbers stand as they lie in memory. Neither side
// trusts what it reads: a library owns its helper's memory.

/// A request to the helper: let the library answer a command.
struct CommandFrame {
  std::uint32_t number = 0;      ///< comes back with the reply; no two requests have the same
  std::uint32_t reply_size = 0;  ///< of the buffer that the library is promised, in bytes
  std::string name;              ///< of the function, in lower case
  std::string command;           ///< the command text
};

/// What a helper has to say.
enum class HelperWord : std::uint8_t {
  kReady,    ///< the library is initialised; the text is its function list
  kRefused,  ///< it is not; the text says why, as Funlib does
  kReply,    ///< the library's reply to a command
  kThrown    ///< what the library threw instead, as the service reports it
};

struct HelperFrame {
  HelperWord word = HelperWord::kReady;
  std::uint32_t number = 0;  ///< of the command that this answers, else 0
  Gbk text;                  ///< without zero bytes
};

/// Longest packets, in bytes.
inline constexpr std::size_t kLongestCommandFrame =
    3 * sizeof(std::uint32_t) + QUORVEL_NAME_SIZE + QUORVEL_COMMAND_SIZE;
inline constexpr std::size_t kLongestHelperFrame =
    sizeof(HelperWord) + sizeof(std::uint32_t) + kFunctionListSize;
/// Largest reply buffer that a command may ask for.
inline constexpr std::size_t kLargestReply = std::size_t{2} * QUORVEL_REPLY_SIZE;

std::string write_frame(const CommandFrame& frame);
std::string write_frame(const HelperFrame& frame);

/// Nothing when the packet is no such frame: too short, too long, of an unknown word, or with names
/// and texts beyond their limits.
std::optional<CommandFrame> read_command_frame(std::string_view packet);
std::optional<HelperFrame> read_helper_frame(std::string_view packet);
