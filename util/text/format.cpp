#include "util/text/format.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <typeinfo>

#include "util/text/conversion.h"

std::string format_arguments(const char* format, std::va_list arguments) {
  char* printed = nullptr;
  const int length = vasprintf(&printed, format, arguments);
  if (length < 0) throw std::bad_alloc();
  const std::unique_ptr<char, decltype(&std::free)> owner(printed, &std::free);
  return {printed, static_cast<std::size_t>(length)};
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks the arguments against the format
std::string format_text(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = format_arguments(format, arguments);
  va_end(arguments);
  return text;
}

Gbk current_exception_text(GbkFormat format, GbkView otherwise) {
  const std::type_info* type = abi::__cxa_current_exception_type();
  const Gbk name(type != nullptr ? type->name() : "?");
  try {
    throw;  // cppcheck-suppress rethrowNoCurrentException; only handlers call this
  } catch (const std::exception& error) {
    return format_gbk(format, Gbk(typeid(error).name()), gbk_of(error.what()));
  } catch (...) {
    return !otherwise.empty() ? Gbk(otherwise) : format_gbk(format, name, Gbk());
  }
}
