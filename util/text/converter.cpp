#include "util/text/converter.h"

#include <cerrno>

int Converter::convert(std::string_view& in, char*& out, std::size_t& room) {
  char* source =
      const_cast<char*>(in.data());  // NOLINT: iconv's signature; it does not write there
  std::size_t left = in.size();
  iconv(handle, nullptr, nullptr, nullptr, nullptr);
  const std::size_t result = iconv(handle, &source, &left, &out, &room);
  const int error = result == static_cast<std::size_t>(-1) ? errno : 0;
  in.remove_prefix(in.size() - left);
  return error;
}
