#pragma once

#include <cstddef>
#include <string_view>

#include "util/text/charset.h"

/// A caller's buffer for a NUL-terminated text: where it begins and its size in bytes, the
/// terminator included. Does not own the bytes.
struct TextBuffer {
  TextBuffer(char* begin, std::size_t byte_count) : data(begin), size(byte_count) {}
  template <std::size_t n>
  TextBuffer(char (&array)[n]) : data(array), size(n) {}  // NOLINT: an array is such a buffer

  char* data;
  std::size_t size;
};

/// Copies `text` with a terminating NUL to `out`. False, with `out` untouched, when it does not
/// fit.
bool copy_text(TextBuffer out, std::string_view text);

/// Copies the reason `text` with a terminating NUL to `out`, cut at a whole character where
/// it does not fit. Always false, the result of what has failed.
bool fail_with(TextBuffer out, GbkView text);
