#pragma once

#include <cstdarg>
#include <string>

/// printf into a string. Bytes of any encoding pass through.
[[gnu::format(printf, 1, 2)]] std::string format_text(const char* format, ...);
std::string format_arguments(const char* format, std::va_list arguments);

/// The exception being handled, as the service reports it (GBK): its dynamic type's name and its
/// what() in `format`, which takes two %s. One that has no what(), being of another class, gives
/// the text `otherwise`, if there is one. Call it inside a handler.
std::string current_exception_text(const char* format, const char* otherwise = nullptr);
