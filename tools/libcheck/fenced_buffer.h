#pragma once

#include <cstddef>
#include <string_view>

/// A zero-filled buffer whose end is the end of accessible memory: the first access past it is a
/// fault at once, in the very call that makes it. The bytes before its start are watched as well.
class FencedBuffer {
 public:
  /// `name` says what the buffer is for, in messages; it outlives the buffer. `size` in bytes,
  /// at least 1.
  FencedBuffer(const char* buffer_name, std::size_t size);
  /// A buffer that holds exactly `text` and its terminating zero.
  FencedBuffer(const char* buffer_name, std::string_view text);
  ~FencedBuffer();
  FencedBuffer(const FencedBuffer&) = delete;
  FencedBuffer& operator=(const FencedBuffer&) = delete;

  char* data() const { return begin; }
  const char* name() const { return label; }
  /// Whether nothing was written directly before the buffer.
  bool start_intact() const;
  /// The buffer's content up to its first zero byte, or all of it.
  std::string_view text() const;

  /// Names the buffer behind whose end `address` lies, in `out` of `out_size` bytes, and gives its
  /// size in `bytes`. False when there is none. Safe in a signal handler.
  static bool describe(const void* address, char* out, std::size_t out_size, std::size_t& bytes);

 private:
  const char* label;
  std::size_t length;
  std::size_t map_size;
  char* map;    ///< a fence page, the pages with the buffer at their end, a fence page
  char* begin;  ///< of the buffer
};
