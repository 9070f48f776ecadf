#include "readers/demo/encoding.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

namespace {

struct ConverterCloser {
  void operator()(void* converter) const { iconv_close(converter); }
};
using Converter = std::unique_ptr<void, ConverterCloser>;

Converter open_converter(const char* to, const char* from) {
  const iconv_t converter = iconv_open(to, from);
  if (converter == reinterpret_cast<iconv_t>(-1))  // NOLINT: iconv_open's own failure value
    throw std::system_error(errno, std::generic_category(), "iconv_open");
  return Converter(converter);
}

}  // namespace

std::string utf8_to_gbk(std::string_view text) {
  const Converter converter = open_converter("gbk", "utf-8");
  std::string gbk;
  std::string source(text);
  char* in = source.data();
  std::size_t in_left = source.size();
  bool replacing = false;
  while (in_left > 0) {
    std::array<char, 256> piece;
    char* out = piece.data();
    std::size_t out_left = piece.size();
    const std::size_t result = iconv(converter.get(), &in, &in_left, &out, &out_left);
    const bool progress = out != piece.data();
    gbk.append(piece.data(), piece.size() - out_left);
    if (result != static_cast<std::size_t>(-1) || errno == E2BIG) continue;
    // One "?" for all the bytes of a character that can't be converted.
    const bool continuation = (static_cast<unsigned char>(*in) & 0xC0) == 0x80;
    if (!replacing || progress || !continuation) gbk += '?';
    replacing = true;
    ++in;
    --in_left;
  }
  return gbk;
}
