#include "util/json/json_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "util/text/format.h"
#include "util/text/gbk.h"
#include "util/text/hex.h"

namespace {

constexpr std::string_view kLetters = "bfnrt";
constexpr std::string_view kControls = "\b\f\n\r\t";

/// Stands for a byte of a GBK text that begins no character: left as it is, it would form one with
/// a backslash that is printed behind it.
constexpr std::string_view kStrayByte = "\\ufffd";

/// Which bytes of a string's content stand for themselves, whatever is beside them: all but the two
/// that end or escape, and control bytes; in GBK also only ASCII.
class PlainBytes {
 public:
  explicit constexpr PlainBytes(unsigned limit) : high_bits(limit > 0x80 ? 0 : kHighBits) {
    for (unsigned byte = 0x20; byte < limit; ++byte) plain[byte] = byte != '"' && byte != '\\';
  }

  /// Where the run of such bytes that begins at `from` ends; read in words.
  std::size_t end_of_run(std::string_view text, std::size_t from) const {
    for (; from + sizeof(std::uint64_t) <= text.size(); from += sizeof(std::uint64_t))
      if (const std::uint64_t other = others(text.data() + from)) return from + first_byte(other);
    while (from < text.size() && plain[static_cast<unsigned char>(text[from])]) ++from;
    return from;
  }

 private:
  static constexpr std::uint64_t kOnes = 0x0101010101010101;
  static constexpr std::uint64_t kHighBits = 0x80 * kOnes;

  /// The high bits of the bytes of a word that are not plain. Bytes behind the first of them may
  /// have theirs as well.
  std::uint64_t others(const char* bytes) const {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    // A byte of ASCII gets its high bit from a subtraction when it is less than what is taken off.
    const std::uint64_t less =
        (word - 0x20 * kOnes) | ((word ^ '"' * kOnes) - kOnes) | ((word ^ '\\' * kOnes) - kOnes);
    return ((less & ~word) | (word & high_bits)) & kHighBits;
  }

  /// The place of the first byte of a word that has its high bit.
  static std::size_t first_byte(std::uint64_t high) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first byte is the lowest");
    return static_cast<std::size_t>(__builtin_ctzll(high)) / 8;
  }

  std::array<bool, 256> plain{};
  std::uint64_t high_bits;
};

constexpr PlainBytes kPlainInUtf8(0x100);
constexpr PlainBytes kPlainInGbk(0x80);

bool needs_escape(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; }

void append_escape(std::string& out, char c) {
  const std::size_t control = kControls.find(c);
  out += '\\';
  if (control != std::string_view::npos) {
    out += kLetters[control];
  } else if (static_cast<unsigned char>(c) < 0x20) {
    out += format_text("u%04x", static_cast<unsigned>(c));
  } else {
    out += c;
  }
}

// Kept out of plain_length, where it would cost every short text the saving of registers.
[[gnu::noinline]] std::size_t plain_length_in_gbk(std::string_view text) {
  for (std::size_t end = 0;;) {
    end = kPlainInGbk.end_of_run(text, end);
    if (end == text.size() || static_cast<unsigned char>(text[end]) < 0x80) return end;
    const std::size_t length = gbk_char_length(text.substr(end));
    if (length == 0) return end;
    end += length;
  }
}

}  // namespace

std::size_t plain_length(std::string_view text, Charset charset) {
  return charset == Charset::kUtf8 ? kPlainInUtf8.end_of_run(text, 0) : plain_length_in_gbk(text);
}

std::size_t char_length(std::string_view text, Charset charset) {
  if (charset == Charset::kUtf8) return 1;
  return std::max<std::size_t>(gbk_char_length(text), 1);
}

void append_escaped(std::string& out, std::string_view text, Charset charset) {
  for (;;) {
    const std::size_t plain = plain_length(text, charset);
    out += text.substr(0, plain);
    if (plain == text.size()) return;
    if (needs_escape(text[plain])) {
      append_escape(out, text[plain]);
    } else {
      out += kStrayByte;
    }
    text.remove_prefix(plain + 1);
  }
}

std::string unescaped(std::string_view content, Charset charset) {
  if (content.find('\\') == std::string_view::npos) return std::string(content);
  std::string text;
  while (!content.empty()) {
    std::size_t length = char_length(content, charset);
    if (content[0] != '\\' || content.size() < 2) {
      text += content.substr(0, length);
    } else if (const std::int32_t code = content[1] == 'u' ? hex4(content, 2) : -1;
               code >= 0 && code < 0x80) {
      text += static_cast<char>(code);
      length = 6;
    } else {
      const std::size_t control = kLetters.find(content[1]);
      text += control != std::string_view::npos ? kControls[control] : content[1];
      length = 2;
    }
    content.remove_prefix(length);
  }
  return text;
}
