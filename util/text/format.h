#pragma once

#include <cstdarg>
#include <string>

#include "util/text/charset.h"

/// printf into a string. Bytes of any encoding pass through.
[[gnu::format(printf, 1, 2)]] std::string format_text(const char* format, ...);
std::string format_arguments(const char* format, std::va_list arguments);

/// An argument of a format in GBK: a text in GBK or a number.
inline const char* gbk_argument(const Gbk& text) { return text.bytes().c_str(); }
inline int gbk_argument(int number) { return number; }
inline std::size_t gbk_argument(std::size_t number) { return number; }

/// printf into a text in GBK.
template <typename... Arguments>
Gbk format_gbk(GbkFormat format, const Arguments&... arguments) {
  return Gbk(format_text(format.text, gbk_argument(arguments)...));
}

/// The exception being handled, as the service reports it: its dynamic type's name and its what()
/// in `format`, which takes two %s. One that has no what(), being of another class, gives the text
/// `otherwise`, if there is one. Call it inside a handler.
Gbk current_exception_text(GbkFormat format, GbkView otherwise = {});
