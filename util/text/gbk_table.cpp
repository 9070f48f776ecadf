#include "util/text/gbk_table.h"

#include <algorithm>
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

/// The characters of the pairs with one lead byte: Unicode numbers, all of at most 16 bits and none
/// of them ASCII; 0 where iconv knows no character.
struct Row {
  bool filled = false;
  std::array<std::uint16_t, kLastTrail - kFirstTrail + 1> characters{};
};
std::array<Row, kLastLead - kFirstLead + 1> rows;  // zero pages until they are needed

/// The character that iconv makes of a pair, or 0.
std::uint16_t ask_iconv(Converter& converter, unsigned lead, unsigned trail) {
  const char pair[] = {static_cast<char>(lead), static_cast<char>(trail)};
  std::string_view in(pair, sizeof pair);
  unsigned char ucs4[4];
  char* out = reinterpret_cast<char*>(ucs4);
  std::size_t room = sizeof ucs4;
  if (converter.convert(in, out, room) != 0 || room != 0 || ucs4[0] != 0 || ucs4[1] != 0) return 0;
  return static_cast<std::uint16_t>(ucs4[2] << 8 | ucs4[3]);
}

const Row& row_of(unsigned lead) {
  Row& row = rows[lead - kFirstLead];
  if (row.filled) return row;
  Converter converter("ucs-4be", kGbkCharset);  // the C library has it without a module
  if (!converter.valid()) return row;
  for (unsigned trail = kFirstTrail; trail <= kLastTrail; ++trail)
    row.characters[trail - kFirstTrail] = ask_iconv(converter, lead, trail);
  row.filled = true;
  return row;
}

std::uint16_t look_up(unsigned char lead, unsigned char trail) {
  if (lead < kFirstLead || lead > kLastLead || trail < kFirstTrail || trail > kLastTrail) return 0;
  return row_of(lead).characters[trail - kFirstTrail];
}

/// Writes a character of at least 0x80; returns its length.
std::size_t write_utf8(std::uint16_t character, char* out) {
  const auto tail = [character](unsigned shift) {
    return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
  };
  if (character < 0x800) {
    out[0] = static_cast<char>(0xC0 | (character >> 6));
    out[1] = tail(0);
    return 2;
  }
  out[0] = static_cast<char>(0xE0 | (character >> 12));
  out[1] = tail(6);
  out[2] = tail(0);
  return 3;
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
  Progress done;
  while (done.read < gbk.size()) {
    if (static_cast<unsigned char>(gbk[done.read]) < 0x80) {
      const std::size_t plain =
          copy_ascii(gbk.substr(done.read, room - done.written), out + done.written);
      if (plain == 0) break;
      done.read += plain;
      done.written += plain;
      continue;
    }
    if (done.read + 1 >= gbk.size()) break;
    const std::uint16_t character = look_up(static_cast<unsigned char>(gbk[done.read]),
                                            static_cast<unsigned char>(gbk[done.read + 1]));
    const std::size_t needed = character < 0x800 ? 2 : 3;
    if (character == 0 || needed > room - done.written) break;
    done.written += write_utf8(character, out + done.written);
    done.read += 2;
  }
  return done;
}
