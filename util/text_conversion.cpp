#include "util/text_conversion.h"

#include <iconv.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr char kGbk[] = "gbk";
constexpr char kUtf8[] = "utf-8";

class Converter {
 public:
  Converter(const char* to, const char* from) : handle(iconv_open(to, from)) {}
  ~Converter() {
    if (valid()) iconv_close(handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool valid() const {
    return handle != reinterpret_cast<iconv_t>(-1);  // NOLINT: iconv_open's own failure value
  }
  bool convert(const char* in, std::size_t inlen, char* out, std::size_t outlen) {
    char* source = const_cast<char*>(in);  // NOLINT: iconv's signature; it does not write there
    return iconv(handle, &source, &inlen, &out, &outlen) != static_cast<std::size_t>(-1);
  }

 private:
  iconv_t handle;
};

}  // namespace

bool preload_conversion() {
  // The C library unloads a character set when its last converter is closed.
  static const Converter kept_open(kUtf8, kGbk);
  return kept_open.valid();
}

int gbk2utfa(const char* in, std::size_t inlen, char* out, std::size_t outlen) {
  Converter converter(kUtf8, kGbk);
  if (outlen > 0) std::memset(out, 0, outlen);
  return converter.valid() && converter.convert(in, inlen, out, outlen) ? 0 : -1;
}

bool gbk_to_utf8(std::string_view gbk, std::string& utf8) {
  utf8.resize(2 * gbk.size() + 1);
  const bool whole = gbk2utfa(gbk.data(), gbk.size(), utf8.data(), utf8.size()) == 0;
  utf8.resize(std::strlen(utf8.c_str()));
  return whole;
}

void cpy2utfa(char* destination, const char* source, std::size_t destination_size) {
  const std::size_t length = std::strlen(source);
  gbk2utfa(source, length, destination, std::min(2 * length, destination_size));
}
