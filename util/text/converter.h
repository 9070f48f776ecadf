#pragma once

#include <iconv.h>

#include <string_view>

/// Owner of one iconv converter between two character sets, by iconv's names.
class Converter {
 public:
  Converter(const char* to, const char* from) : handle(iconv_open(to, from)) {}
  ~Converter() {
    if (valid()) iconv_close(handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  /// Whether the system has this conversion. Without it convert() must not be called.
  bool valid() const {
    return handle != reinterpret_cast<iconv_t>(-1);  // NOLINT: iconv_open's own failure value
  }

  /// Converts as much of `in` as iconv takes in one call, from its initial state, into `room` bytes
  /// at `out`; both are moved behind what was done. 0 when all of `in` was converted, else the
  /// errno: EILSEQ or EINVAL for bytes that are no (whole) character, E2BIG for want of room.
  int convert(std::string_view& in, char*& out, std::size_t& room);

 private:
  iconv_t handle;
};
