#pragma once

#include <string>
#include <string_view>

#include "readers/pcsc/pcsc.h"

/// A command to a card, as ISO 7816-4 has it.
struct Command {
  unsigned char ins;
  unsigned char p1 = 0;
  unsigned char p2 = 0;
  std::string data;          ///< at most 255 bytes
  std::size_t expected = 0;  ///< bytes of the answer: 0 for none, up to 256, or kExtended
  unsigned char cla = 0;     ///< 0 for the standard's own commands
};
inline constexpr std::size_t kShortest = 256;  // what a command without extended length can ask for
inline constexpr std::size_t kExtended = 65536;

/// A status word in which the card reports how it went.
namespace status {
inline constexpr unsigned kOk = 0x9000;
inline constexpr unsigned kEndOfFile = 0x6282;  // with what there was
inline constexpr unsigned kNotFound = 0x6A82;   // the file or application
inline constexpr unsigned kNoRecord = 0x6A83;
inline constexpr unsigned kWrongParameters = 0x6A86;
inline constexpr unsigned kNoObject = 0x6A88;
inline constexpr unsigned kBeyondFile = 0x6B00;  // the offset
}  // namespace status

struct Answer {
  std::string data;
  unsigned status;

  /// Whether the command was carried out, perhaps with a warning.
  bool ok() const;
  /// Whether the card says that it has no such file, record or object.
  bool not_there() const;
};

/// The whole answer to a command: asked for in parts (61xx) and with the length that the card names
/// (6Cxx). Throws as Card::transmit.
Answer send(Card& card, const Command& command);
