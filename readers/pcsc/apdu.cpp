#include "readers/pcsc/apdu.h"

namespace {

constexpr unsigned char kGetResponse = 0xC0;
constexpr unsigned kMoreToCome = 0x61;   // first byte of the status; the second: how much
constexpr unsigned kWrongLength = 0x6C;  // first byte of the status; the second: the right one
constexpr std::size_t kMostParts = 512;  // of one answer: more than any file has

std::string header(const Command& command) {
  return {static_cast<char>(command.cla), static_cast<char>(command.ins),
          static_cast<char>(command.p1), static_cast<char>(command.p2)};
}

void append_number(std::string& bytes, std::size_t number, int size) {
  while (size-- > 0) bytes += static_cast<char>(number >> 8 * size & 0xFF);
}

/// Of lengths the low byte or two count: the largest becomes 0.
std::string encode(const Command& command, bool is_t0) {
  std::string bytes = header(command);
  const bool is_extended = command.expected > kShortest && !is_t0;
  if (is_extended) bytes += '\0';
  const int size = is_extended ? 2 : 1;
  if (!command.data.empty()) append_number(bytes, command.data.size(), size);
  bytes += command.data;
  if (command.expected > 0 && (command.data.empty() || !is_t0))
    append_number(bytes, command.expected, size);
  return bytes;
}

Answer exchange(Card& card, const Command& command) {
  std::string data = card.transmit(encode(command, card.is_t0()));
  const unsigned low = static_cast<unsigned char>(data.back());
  data.pop_back();
  const unsigned high = static_cast<unsigned char>(data.back());
  data.pop_back();
  // No card ends like this: one that was pulled while it answered.
  if ((high & 0xF0) != 0x60 && (high & 0xF0) != 0x90) card.give_up();
  return {std::move(data), high << 8 | low};
}

std::size_t announced(const Answer& answer) {
  const std::size_t length = answer.status & 0xFF;
  return length == 0 ? kShortest : length;
}

}  // namespace

bool Answer::ok() const {
  const unsigned high = status >> 8;
  return status == status::kOk || high == 0x62 || high == 0x63;
}

bool Answer::not_there() const {
  return status == status::kNotFound || status == status::kNoRecord || status == status::kNoObject;
}

Answer send(Card& card, const Command& command) {
  Answer answer = exchange(card, command);
  if (answer.status >> 8 == kWrongLength) {
    Command again = command;
    again.expected = announced(answer);
    answer = exchange(card, again);
  }
  for (std::size_t parts = 1; answer.status >> 8 == kMoreToCome; ++parts) {
    if (parts > kMostParts) throw Failure(failures::kUnreadable);
    Command more{kGetResponse, 0, 0, {}, announced(answer)};
    Answer rest = exchange(card, more);
    if (rest.status >> 8 == kWrongLength) {
      more.expected = announced(rest);
      rest = exchange(card, more);
    }
    answer.data += rest.data;
    answer.status = rest.status;
  }
  return answer;
}
