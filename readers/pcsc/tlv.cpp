#include "readers/pcsc/tlv.h"

#include "readers/pcsc/card_data_error.h"
#include "util/text/hex.h"

namespace {

constexpr std::size_t kLongestTag = 4;
constexpr std::size_t kLongestLength = 4;    // bytes of a length behind the one that counts them
constexpr unsigned char kLongLength = 0xFF;  // of simple TLV: the length stands behind it

unsigned char take_byte(std::string_view& data) {
  if (data.empty()) throw CardDataError("TLV数据不完整");
  const auto byte = static_cast<unsigned char>(data[0]);
  data.remove_prefix(1);
  return byte;
}

std::string_view take(std::string_view& data, std::size_t length) {
  if (length > data.size()) throw CardDataError("TLV长度超出数据");
  const std::string_view taken = data.substr(0, length);
  data.remove_prefix(length);
  return taken;
}

bool is_fill(char c) { return c == '\0' || c == '\xFF'; }

std::uint32_t take_ber_tag(std::string_view& data) {
  std::uint32_t tag = take_byte(data);
  if ((tag & 0x1F) != 0x1F) return tag;
  for (std::size_t size = 1; size < kLongestTag; ++size) {
    const unsigned char byte = take_byte(data);
    tag = tag << 8 | byte;
    if ((byte & 0x80) == 0) return tag;
  }
  throw CardDataError("TLV标签过长");
}

std::size_t take_ber_length(std::string_view& data) {
  const unsigned char first = take_byte(data);
  if (first < 0x80) return first;
  const std::size_t count = first & 0x7F;
  if (count == 0 || count > kLongestLength) throw CardDataError("TLV长度的形式无效");
  std::size_t length = 0;
  for (std::size_t at = 0; at < count; ++at) length = length << 8 | take_byte(data);
  return length;
}

std::size_t take_simple_length(std::string_view& data, LongLength form) {
  std::size_t length = take_byte(data);
  if (length != kLongLength) return length;
  if (form == LongLength::kTwoBytes) {
    const std::size_t high = take_byte(data);
    return high << 8 | take_byte(data);
  }
  unsigned char more = 0;
  do {
    more = take_byte(data);
    length += more;
  } while (more == kLongLength);
  return length;
}

}  // namespace

std::optional<BerObject> next_ber_object(std::string_view& data) {
  while (!data.empty() && is_fill(data[0])) data.remove_prefix(1);
  if (data.empty()) return std::nullopt;
  const std::uint32_t tag = take_ber_tag(data);
  const std::size_t length = take_ber_length(data);
  return BerObject{tag, take(data, length)};
}

std::optional<std::string_view> find_ber(std::string_view data,
                                         const std::vector<std::uint32_t>& path) {
  for (const std::uint32_t tag : path) {
    std::optional<BerObject> object;
    do object = next_ber_object(data);
    while (object && object->tag != tag);
    if (!object) return std::nullopt;
    data = object->value;
  }
  return data;
}

std::optional<std::uint32_t> parse_ber_tag(std::string_view digits) {
  const auto bytes = bytes_of_hex(digits);
  if (!bytes || bytes->size() > kLongestTag || is_fill((*bytes)[0])) return std::nullopt;
  std::string_view left = *bytes;
  try {
    const std::uint32_t tag = take_ber_tag(left);
    return left.empty() ? std::optional(tag) : std::nullopt;
  } catch (const CardDataError&) {
    return std::nullopt;
  }
}

std::string join_buffers(std::string_view tags, std::string_view values) {
  std::string joined;
  while (!tags.empty()) {
    joined += static_cast<char>(take_byte(tags));
    std::size_t length = take_byte(tags);
    joined += static_cast<char>(length);
    if (length == kLongLength) {
      const unsigned char low = take_byte(tags);
      const unsigned char high = take_byte(tags);
      joined += {static_cast<char>(high), static_cast<char>(low)};
      length = static_cast<std::size_t>(high) << 8 | low;
    }
    joined += take(values, length);
  }
  return joined;
}

std::optional<std::string_view> find_simple(std::string_view data, unsigned char tag,
                                            LongLength form) {
  while (!data.empty()) {
    const unsigned char found = take_byte(data);
    if (found == 0 && data.find_first_not_of('\0') == std::string_view::npos) break;  // fill
    const std::size_t length = take_simple_length(data, form);
    const std::string_view value = take(data, length);
    if (found == tag) return value;
  }
  return std::nullopt;
}
