// GBK texts: cleaning, conversion to UTF-8 and failure replies, in buffers of exact size.
// Input: a limit and a buffer size in bytes, one byte each, then the text.

#include <cstring>
#include <memory>
#include <string>

#include "fuzz/client_view.h"
#include "fuzz/input.h"
#include "util/gbk.h"
#include "util/reply.h"
#include "util/text_conversion.h"

namespace {

constexpr std::size_t kSmallestReply = 32;

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t limit = input.byte();
  const std::size_t room = input.byte();
  const std::string text = input.rest();

  const std::string clean = clean_gbk(text, limit);
  require(clean.size() <= limit, "a clean text keeps to its limit");
  require(clean_gbk(clean) == clean, "a clean text stays as it is");
  require(clean[0] == '\0' || !utf8_of(clean).empty(), "a clean text converts to its end");

  const auto out = std::make_unique<char[]>(room);
  gbk2utfa(text.data(), text.size(), out.get(), room);
  const auto doubled = std::make_unique<char[]>(2 * std::strlen(text.c_str()));
  cpy2utfa(doubled.get(), text.c_str());

  const std::size_t reply_size = kSmallestReply + room;
  const std::unique_ptr<char[]> reply(new char[reply_size]);
  write_failure(reply.get(), reply_size, text);
  require(strnlen(reply.get(), reply_size) < reply_size, "the reply ends in its buffer");
  require(!require_envelope(reply.get()), "a failure's result is false");
  return 0;
}
