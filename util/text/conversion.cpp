#include "util/text/conversion.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "util/text/ascii.h"
#include "util/text/converter.h"
#include "util/text/gbk.h"
#include "util/text/gbk_table.h"
#include "util/text/utf8.h"

namespace {

constexpr char kGb18030[] = "gb18030";
constexpr char kUtf8[] = "utf-8";

/// iconv takes this byte alone, which begins no character of GBK, for the euro sign.
constexpr char kLoneEuroSign = '\x80';

bool holds_lone_euro_sign(std::string_view text) {
  if (text.find(kLoneEuroSign) == std::string_view::npos) return false;  // not even as a trail byte
  while (!text.empty() && text[0] != kLoneEuroSign)
    text.remove_prefix(std::max<std::size_t>(gbk_char_length(text), 1));
  return !text.empty();
}

void append(std::string_view bytes, char*& out, std::size_t& room) {
  const std::size_t length = std::min(bytes.size(), room);
  std::memcpy(out, bytes.data(), length);
  out += length;
  room -= length;
}

/// Converts the text as GB18030 from its start, with U+FFFD for stray bytes, as far as there is
/// room. Returns the end of what was written.
char* convert_gb18030(std::string_view text, char* out, std::size_t room) {
  Converter converter(kUtf8, kGb18030);
  while (converter.valid() && !text.empty() && room > 0) {
    if (converter.convert(text, out, room) == 0) break;
    append(kReplacementCharacter, out, room);
    text.remove_prefix(1);
  }
  return out;
}

}  // namespace

int gbk2utfa(const char* in, std::size_t inlen, char* out, std::size_t outlen) {
  const Progress known = convert_known_gbk({in, inlen}, out, outlen);
  if (outlen > 0) std::memset(out + known.written, 0, outlen - known.written);
  if (known.read == inlen) return 0;
  Converter converter(kUtf8, kGbkCharset);
  std::string_view rest(in + known.read, inlen - known.read);
  out += known.written;
  std::size_t room = outlen - known.written;
  return converter.valid() && converter.convert(rest, out, room) == 0 ? 0 : -1;
}

void cpy2utfa(char* destination, const char* source, std::size_t destination_size) {
  const std::size_t length = std::strlen(source);
  gbk2utfa(source, length, destination, std::min(2 * length, destination_size));
}

bool library_text_to_utf8(GbkView gbk, TextBuffer out) {
  const std::string_view text = gbk.bytes();
  const bool fits = 2 * text.size() < out.size;
  if (fits && gbk2utfa(text.data(), text.size(), out.data, 2 * text.size()) == 0 &&
      !holds_lone_euro_sign(text)) {
    out.data[2 * text.size()] = '\0';
    return true;
  }
  *convert_gb18030(text, out.data, out.size - 1) = '\0';
  return false;
}

bool library_text_to_utf8(GbkView text, std::string& utf8) {
  utf8.resize(kLargestGrowth * text.bytes().size() + 1);
  const bool is_gbk = library_text_to_utf8(text, {utf8.data(), utf8.size()});
  utf8.resize(std::strlen(utf8.c_str()));
  return is_gbk;
}

bool gbk_to_utf8(GbkView text, std::string& utf8) {
  const std::string_view gbk = text.bytes();
  utf8.resize(2 * gbk.size() + 1);
  const bool whole = gbk2utfa(gbk.data(), gbk.size(), utf8.data(), utf8.size()) == 0;
  utf8.resize(std::strlen(utf8.c_str()));
  return whole;
}

Gbk utf8_to_gbk(Utf8View text) {
  std::string_view utf8 = text.bytes();
  if (is_ascii(utf8)) return Gbk(std::string(utf8));
  Converter converter(kGbkCharset, kUtf8);
  std::string gbk(utf8.size(), '\0');  // no character takes more bytes in GBK than in UTF-8
  char* out = gbk.data();
  std::size_t room = gbk.size();
  bool replacing = false;
  while (converter.valid() && !utf8.empty()) {
    const char* before = out;
    if (converter.convert(utf8, out, room) == 0) break;
    // One "?" for all the bytes of a character that can't be converted.
    if (!replacing || out != before || !is_utf8_tail(utf8[0])) append("?", out, room);
    replacing = true;
    utf8.remove_prefix(1);
  }
  gbk.resize(gbk.size() - room);
  return Gbk(std::move(gbk));
}

Utf8 shown(GbkView gbk) {
  std::string utf8;
  library_text_to_utf8(gbk, utf8);
  return Utf8(std::move(utf8));
}

Utf8 shown(std::string_view bytes) {
  return is_utf8(bytes) ? Utf8(std::string(bytes)) : shown(GbkView(bytes));
}

Gbk gbk_of(std::string_view bytes) {
  return is_utf8(bytes) ? utf8_to_gbk(Utf8View(bytes)) : Gbk(clean_gbk(bytes));
}

bool preload_conversion() {
  // The C library unloads a character set when its last converter is closed.
  static const Converter kept_open[] = {{kUtf8, kGbkCharset}, {kUtf8, kGb18030}};
  return kept_open[0].valid();
}
