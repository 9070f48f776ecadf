#pragma once

#include <cstddef>
#include <string_view>

#include "util/text/text_buffer.h"

/// Size in bytes of the buffer that takes one reply, its terminating NUL included.
inline constexpr std::size_t kReplySize = 1024;

/// Writes the reply {"result":"false","errmsg":...} to `out`. `errmsg` may hold anything; it is
/// cleaned and escaped, and cut at a whole character where the reply would not fit, so that the
/// reply is valid JSON. `out` must have room for the empty envelope. Always false, the result of
/// what has failed.
bool write_failure(TextBuffer out, GbkView errmsg);
