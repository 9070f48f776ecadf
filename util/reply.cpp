#include "util/reply.h"

#include <cxxabi.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <typeinfo>

#include "util/gbk.h"

namespace {

constexpr std::string_view kEnvelopeStart = R"({"result":"false","errmsg":")";
constexpr std::string_view kEnvelopeEnd = R"("})";

std::string escaped(std::string_view character) {
  const auto byte = static_cast<unsigned char>(character[0]);
  if (byte == '"' || byte == '\\') return std::string("\\").append(character);
  if (byte >= 0x20) return std::string(character);
  return format_text("\\u%04x", byte);
}

}  // namespace

bool copy_text(char* out, std::size_t size, std::string_view text) {
  if (text.size() >= size) return false;
  std::memcpy(out, text.data(), text.size());
  out[text.size()] = '\0';
  return true;
}

bool fail_with(char* out, std::size_t size, std::string_view text) {
  copy_text(out, size, clean_gbk(text, size - 1));
  return false;
}

void write_failure(char* out, std::size_t size, std::string_view errmsg) {
  const std::string reason = clean_gbk(errmsg);
  std::string reply(kEnvelopeStart);
  std::string_view rest = reason;
  while (!rest.empty()) {
    const std::size_t length = static_cast<unsigned char>(rest[0]) < 0x80 ? 1 : 2;
    const std::string next = escaped(rest.substr(0, length));
    if (reply.size() + next.size() + kEnvelopeEnd.size() >= size) break;
    reply += next;
    rest.remove_prefix(length);
  }
  reply += kEnvelopeEnd;
  copy_text(out, size, reply);
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks the arguments against the format
std::string format_text(const char* format, ...) {
  char* printed = nullptr;
  va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&printed, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::bad_alloc();
  const std::unique_ptr<char, decltype(&std::free)> owner(printed, &std::free);
  return {printed, static_cast<std::size_t>(length)};
}

std::string exception_text(const char* format, const std::exception* error) {
  const std::type_info* type =
      error != nullptr ? &typeid(*error) : abi::__cxa_current_exception_type();
  return format_text(format, type != nullptr ? type->name() : "?",
                     error != nullptr ? error->what() : "");
}
