#include "util/text/gbk_table.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "util/text/conversion.h"
#include "util/text/converter.h"

namespace {

constexpr unsigned kFirstLead = 0x81;
constexpr unsigned kLastLead = 0xFE;
constexpr unsigned kFirstTrail = 0x40;
constexpr unsigned kLastTrail = 0xFE;

/// A character as UTF-8 writes it; of length 0 where iconv knows none.
struct Utf8Character {
  char bytes[3];
  std::uint8_t length;
};
static_assert(sizeof(Utf8Character) == 4, "taken as a word");

/// The characters of the pairs with one lead byte.
using Row = std::array<Utf8Character, kLastTrail - kFirstTrail + 1>;
std::array<Row, kLastLead - kFirstLead + 1> rows;  // zero pages until they are needed
std::array<bool, rows.size()> is_filled;

/// The character that iconv makes of a pair, if it makes one of 2 or 3 bytes.
Utf8Character ask_iconv(Converter& converter, unsigned lead, unsigned trail) {
  const char pair[] = {static_cast<char>(lead), static_cast<char>(trail)};
  std::string_view in(pair, sizeof pair);
  Utf8Character character{};
  char* out = character.bytes;
  std::size_t room = sizeof character.bytes;
  if (converter.convert(in, out, room) != 0 || room > 1) return {};
  character.length = static_cast<std::uint8_t>(sizeof character.bytes - room);
  return character;
}

/// Asks iconv for the characters of a row, unless it has been asked or has no GBK.
// Kept out of the loop over a text, which needs the registers.
[[gnu::noinline]] void fill_row(unsigned row) {
  if (is_filled[row]) return;
  Converter converter("utf-8", kGbkCharset);
  if (!converter.valid()) return;
  for (unsigned trail = kFirstTrail; trail <= kLastTrail; ++trail)
    rows[row][trail - kFirstTrail] = ask_iconv(converter, row + kFirstLead, trail);
  is_filled[row] = true;
}

const Utf8Character& look_up(unsigned lead, unsigned trail) {
  static constexpr Utf8Character kUnknown{};
  const unsigned row = lead - kFirstLead;  // a large number where it would be below 0
  const unsigned place = trail - kFirstTrail;
  if (row >= rows.size() || place >= rows[row].size()) return kUnknown;
  if (rows[row][place].length == 0) fill_row(row);
  return rows[row][place];
}

/// Copies the ASCII bytes at the start of the text, in words where they are many; returns their
/// number.
std::size_t copy_ascii(std::string_view text, char* out) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t length = 0;
  for (std::uint64_t word = 0; length + sizeof word <= text.size(); length += sizeof word) {
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & kHighBits) != 0) break;
    std::memcpy(out + length, &word, sizeof word);
  }
  for (; length < text.size() && static_cast<unsigned char>(text[length]) < 0x80; ++length)
    out[length] = text[length];
  return length;
}

}  // namespace

Progress convert_known_gbk(std::string_view gbk, char* out, std::size_t room) {
  const char* in = gbk.data();
  const char* const in_end = in + gbk.size();
  char* to = out;
  char* const to_end = out + room;
  while (in != in_end) {
    const auto left = static_cast<std::size_t>(to_end - to);
    if (static_cast<unsigned char>(*in) < 0x80) {
      const std::size_t length = std::min(static_cast<std::size_t>(in_end - in), left);
      const std::size_t plain = copy_ascii({in, length}, to);
      if (plain == 0) break;
      in += plain;
      to += plain;
      continue;
    }
    if (in + 1 == in_end) break;
    const Utf8Character& character =
        look_up(static_cast<unsigned char>(in[0]), static_cast<unsigned char>(in[1]));
    if (character.length == 0 || character.length > left) break;
    // What a whole word writes too much, the next character or the caller replaces.
    if (left >= sizeof character) {
      std::memcpy(to, &character, sizeof character);
    } else {
      std::memcpy(to, &character, character.length);
    }
    to += character.length;
    in += 2;
  }
  return {static_cast<std::size_t>(in - gbk.data()), static_cast<std::size_t>(to - out)};
}
