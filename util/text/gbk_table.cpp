#include "util/text/gbk_table.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "util/text/conversion.h"
#include "util/text/converter.h"

namespace {

/// A character as UTF-8 writes it; of length 0 where iconv knows none.
struct Utf8Character {
  char bytes[3];
  std::uint8_t length;
};
static_assert(sizeof(Utf8Character) == 4, "taken as a word");

/// The characters of all pairs of bytes, by the lead byte and then by the trail byte. Zero pages
/// until they are needed.
std::array<std::array<Utf8Character, 0x100>, 0x100> rows;
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
[[gnu::noinline]] void fill_row(unsigned char lead) {
  if (is_filled[lead]) return;
  Converter converter("utf-8", kGbkCharset);
  if (!converter.valid()) return;
  unsigned trail = 0;
  for (Utf8Character& character : rows[lead]) character = ask_iconv(converter, lead, trail++);
  is_filled[lead] = true;
}

const Utf8Character& look_up(unsigned char lead, unsigned char trail) {
  const Utf8Character& character = rows[lead][trail];
  if (character.length == 0) fill_row(lead);
  return character;
}

/// Copies the ASCII bytes at the start of the text, in words as far as there are; returns their
/// number. What else the last word holds is copied, too, to be replaced.
std::size_t copy_ascii(std::string_view text, char* out) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first byte is the lowest");
  std::size_t length = 0;
  for (std::uint64_t word = 0; length + sizeof word <= text.size(); length += sizeof word) {
    std::memcpy(&word, text.data() + length, sizeof word);
    std::memcpy(out + length, &word, sizeof word);
    if (const std::uint64_t other = word & kHighBits; other != 0)
      return length + static_cast<std::size_t>(__builtin_ctzll(other)) / 8;
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
    if (in + 1 == in_end || left < sizeof(Utf8Character)) break;
    const Utf8Character& character =
        look_up(static_cast<unsigned char>(in[0]), static_cast<unsigned char>(in[1]));
    if (character.length == 0) break;
    // What a whole word writes too much, the next character or the caller replaces.
    std::memcpy(to, &character, sizeof character);
    to += character.length;
    in += 2;
  }
  return {static_cast<std::size_t>(in - gbk.data()), static_cast<std::size_t>(to - out)};
}
