#include "tests/pcsc/iso_card.h"

#include <algorithm>

#include "tests/pcsc/pcsc_test.h"
#include "util/text/hex.h"

namespace {

/// Ends a command with a status word other than success.
struct Refusal {
  unsigned status;
};

std::string status_bytes(unsigned status) {
  return {static_cast<char>(status >> 8), static_cast<char>(status)};
}

using Parts = IsoCard::Parts;

Parts take_apart(const std::string& command) {
  const auto at = [&](std::size_t index) { return static_cast<unsigned char>(command[index]); };
  Parts parts = {at(1), at(2), at(3), {}, 0, false};
  std::size_t left = command.size() - 4;
  const std::size_t width = left > 1 && at(4) == 0 ? 2 : 1;  // of lengths
  std::size_t place = width == 2 ? 5 : 4;
  parts.is_extended = width == 2;
  const auto length = [&] { return width == 2 ? at(place) << 8 | at(place + 1) : at(place); };
  left = command.size() - place;
  if (left > width) {
    parts.data = command.substr(place + width, static_cast<std::size_t>(length()));
    place += width + parts.data.size();
    left = command.size() - place;
  }
  if (left == width)
    parts.expected = length() == 0 ? 1U << 8 * width : static_cast<std::size_t>(length());
  return parts;
}

}  // namespace

bool IsoCard::exists(const std::string& place) const {
  const auto begins = [&](const auto& entry) {
    return (entry.first + "/").rfind(place + "/", 0) == 0;
  };
  return std::any_of(files.begin(), files.end(), begins) ||
         std::any_of(record_files.begin(), record_files.end(), begins);
}

std::string IsoCard::select(unsigned char p1, unsigned char p2, const std::string& what) {
  if (wants_information && p2 != 0) throw Refusal{0x6A86};
  const std::string name = hexadecimal(what);
  std::string place = p1 == 4 ? "aid " + name : p1 == 0 ? name : df + "/" + name;
  if (p1 == 8) {
    place = name.substr(0, 4);
    for (std::size_t at = 4; at < name.size(); at += 4) place += "/" + name.substr(at, 4);
  }
  if (!exists(place)) throw Refusal{0x6A82};
  if (p1 != 2 && p1 != 8) df = place;
  current = place;
  return p2 == 0 ? bytes("6F02 8400") : "";
}

std::string IsoCard::carry_out(const Parts& parts) {
  const auto of = [](const auto& all, const std::string& key, unsigned otherwise) {
    const auto found = all.find(key);
    if (found == all.end()) throw Refusal{otherwise};
    return found->second;
  };
  if (parts.ins == 0xA4) return select(parts.p1, parts.p2, parts.data);
  if (parts.ins == 0xB0) {
    const std::string file = of(files, current, 0x6A82);
    const auto offset = static_cast<std::size_t>(parts.p1 << 8 | parts.p2);
    if (offset > 0 && offset >= file.size()) throw Refusal{0x6B00};
    return file.substr(offset, parts.expected);
  }
  if (parts.ins == 0xB2) {
    const std::vector<std::string> records = of(record_files, current, 0x6A82);
    if (parts.p1 == 0 || parts.p1 > records.size()) throw Refusal{0x6A83};
    return records[parts.p1 - 1U];
  }
  if (parts.ins == 0x52) {  // of a CAC
    const std::string buffer =
        of(record_files, current, 0x6A82).at(static_cast<unsigned char>(parts.data.at(0)) - 1U);
    return buffer.substr(static_cast<std::size_t>(parts.p1 << 8 | parts.p2),
                         static_cast<unsigned char>(parts.data.at(1)));
  }
  if (parts.ins == 0xCA)
    return of(objects, hexadecimal(status_bytes(static_cast<unsigned>(parts.p1 << 8 | parts.p2))),
              0x6A88);
  if (parts.ins == 0xCB) return of(objects, hexadecimal(parts.data).substr(4), 0x6A88);
  if (parts.ins == 0xC0) return pending;
  throw Refusal{0x6D00};
}

std::string IsoCard::answer(const std::string& command) {
  log.push_back(hexadecimal(command));
  const Parts parts = take_apart(command);
  try {
    const bool is_odd = is_t0 ? !parts.data.empty() && parts.expected > 0 : parts.is_extended;
    if (is_odd && !knows_extended) throw Refusal{0x6700};
    const std::string data = carry_out(parts);
    const auto low = [](std::size_t count) {
      return static_cast<unsigned>(std::min<std::size_t>(count, 256) & 0xFF);
    };
    if (is_t0 && parts.expected == 0 && !data.empty()) {
      pending = data;
      throw Refusal{0x6100 | low(data.size())};
    }
    const std::size_t at_once =
        parts.expected > 256 ? parts.expected : std::min(most, parts.expected);
    if (gives_exactly && data.size() < at_once) throw Refusal{0x6C00 | low(data.size())};
    pending = data.substr(std::min(at_once, data.size()));
    return data.substr(0, at_once) +
           status_bytes(pending.empty() ? 0x9000 : 0x6100 | low(pending.size()));
  } catch (const Refusal& refusal) {
    return status_bytes(refusal.status);
  }
}
