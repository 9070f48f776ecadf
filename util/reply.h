#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>

/// Size in bytes of the buffer that takes one reply, its terminating NUL included.
inline constexpr std::size_t kReplySize = 1024;

/// Copies `text` with a terminating NUL to `out` of `size` bytes. False, with `out` untouched, when
/// it does not fit.
bool copy_text(char* out, std::size_t size, std::string_view text);

/// Copies the reason `text` (GBK) with a terminating NUL to `out` of `size` bytes, cut at a whole
/// character where it does not fit. Always false, the result of what has failed.
bool fail_with(char* out, std::size_t size, std::string_view text);

/// Writes the reply {"result":"false","errmsg":...} to `out` of `size` bytes. `errmsg` is GBK of
/// any content; it is escaped, and cut at a whole character where the reply would not fit, so that
/// the reply is valid JSON. `size` must have room for the empty envelope.
void write_failure(char* out, std::size_t size, std::string_view errmsg);

/// printf into a string. GBK in, GBK out.
[[gnu::format(printf, 1, 2)]] std::string format_text(const char* format, ...);

/// The exception as the service reports it (GBK): its dynamic type's name and its what() in
/// `format`, which takes two %s. `error` null stands for an exception of another class, which has
/// no what(); call it inside the handler then.
std::string exception_text(const char* format, const std::exception* error);
