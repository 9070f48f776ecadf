// The readers of a card's tagged data: whatever it holds, they stay within it and find what they
// say. Input: kind, one byte; tags of a path up to NUL; then the data.

#include <algorithm>

#include "fuzz/input.h"
#include "readers/pcsc/card_data_error.h"
#include "readers/pcsc/decoding.h"
#include "readers/pcsc/tlv.h"

namespace {

void require_part(std::string_view part, std::string_view whole) {
  require(part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size(),
          "a value is a part of the data");
}

/// A walk over all objects ends, and each takes at least its tag and length.
void walk(std::string_view data, int depth) {
  static constexpr int kDeepest = 20;
  std::string_view left = data;
  while (const auto object = next_ber_object(left)) {
    require_part(object->value, data);
    require(left.size() + object->value.size() + 2 <= data.size(),
            "an object has a tag and a length");
    const auto found = find_ber(data, {object->tag});
    require(found.has_value() && found->data() <= object->value.data(), "the first is found");
    if (depth < kDeepest) try {
        walk(object->value, depth + 1);
      } catch (const CardDataError&) {
        continue;  // a value that is no object
      }
  }
}

/// What is put together of two buffers, of which the first has `size` bytes, can be taken apart.
void join(const std::string& buffers, std::size_t size) {
  size = std::min(size, buffers.size());
  const std::string joined = join_buffers(buffers.substr(0, size), buffers.substr(size));
  require(joined.size() <= buffers.size(), "nothing is added");
  try {
    find_simple(joined, 0xFE, LongLength::kTwoBytes);
  } catch (const CardDataError&) {
    require(false, "each length fits");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static constexpr Decoding kDecodings[] = {
      Decoding::kAscii, Decoding::kLatin1, Decoding::kUtf8,   Decoding::kUtf16be, Decoding::kGbk,
      Decoding::kHex,   Decoding::kBcd,    Decoding::kNumber, Decoding::kCp1252};
  Input input(data, size);
  const std::uint8_t kind = input.byte();
  const std::string tags = input.text();
  const std::string content = input.rest();
  try {
    std::string_view value = content;
    if (kind >= 0x80) {
      join(content, tags.size());
    } else if (kind % 4 == 0) {
      walk(content, 0);
    } else if (kind % 4 == 1) {
      const auto found = find_ber(content, {tags.begin(), tags.end()});
      value = found.value_or("");
      if (found) require_part(value, content);
    } else if (!tags.empty()) {
      const LongLength form = kind % 4 == 2 ? LongLength::kTwoBytes : LongLength::kSum;
      const auto found = find_simple(content, static_cast<unsigned char>(tags[0]), form);
      value = found.value_or("");
      if (found) require_part(value, content);
    }
    const std::string text = decode(value, kDecodings[kind / 4 % std::size(kDecodings)]);
    to_iso_date(text, DateOrder::kDmy);
  } catch (const CardDataError& error) {
    require(error.what()[0] != '\0', "an error says what is wrong");
  }
  return 0;
}
