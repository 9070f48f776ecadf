// GBK texts: cleaning, conversion to UTF-8 and failure replies, in buffers of exact size.
// Input: a limit and a buffer size in bytes, one byte each, then the text.

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/client_view.h"
#include "fuzz/input.h"
#include "util/json/failure_reply.h"
#include "util/text/conversion.h"
#include "util/text/converter.h"
#include "util/text/gbk.h"

namespace {

constexpr std::size_t kSmallestReply = 32;

/// What iconv alone makes of the GBK text in `room` bytes; true when all of it was converted.
bool by_iconv(std::string_view gbk, std::string& utf8, std::size_t room) {
  Converter converter("utf-8", kGbkCharset);
  utf8.assign(room, '\0');
  char* out = utf8.data();
  return converter.convert(gbk, out, room) == 0;
}

/// Whether the text is UTF-8 as its receivers check it.
bool is_utf8(std::string_view text) {
  Converter converter("utf-32", "utf-8");
  std::string out(4 * text.size() + 4, '\0');
  char* end = out.data();
  std::size_t room = out.size();
  return converter.convert(text, end, room) == 0;
}

void require_whole(const std::string& text) {
  const std::string utf8 = client_text(text);
  require(is_utf8(utf8), "a library's text becomes UTF-8");
  require(client_text(text + "\"}") == utf8 + "\"}", "what follows a stray byte stays");
  std::string by_itself;
  if (by_iconv(text, by_itself, 2 * text.size() + 1) && text.find('\x80') == std::string::npos)
    require(utf8 == by_itself.c_str(), "GBK is converted as GBK");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t limit = input.byte();
  const std::size_t room = input.byte();
  const std::string text = input.rest();

  const std::string clean = clean_gbk(text, limit);
  require(clean.size() <= limit, "a clean text keeps to its limit");
  require(clean_gbk(clean) == clean, "a clean text stays as it is");
  require_whole(std::string(text.c_str()));

  const auto out = std::make_unique<char[]>(room);
  std::fill_n(out.get(), room, 'x');
  std::string expected;
  const bool whole = by_iconv(text, expected, room);
  require((gbk2utfa(text.data(), text.size(), out.get(), room) == 0) == whole,
          "the table agrees with iconv on what is GBK");
  require(std::string_view(out.get(), room) == expected, "the table converts as iconv does");
  const auto doubled = std::make_unique<char[]>(2 * std::strlen(text.c_str()));
  cpy2utfa(doubled.get(), text.c_str());

  const std::size_t reply_size = kSmallestReply + room;
  const std::unique_ptr<char[]> reply(new char[reply_size]);
  write_failure({reply.get(), reply_size}, GbkView(text));
  require(strnlen(reply.get(), reply_size) < reply_size, "the reply ends in its buffer");
  require(!require_envelope(reply.get()), "a failure's result is false");
  return 0;
}
