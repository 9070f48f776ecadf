#pragma once

#include <array>
#include <cstddef>

/// A buffer that is lent to a reader library, with far more storage behind it than the library has
/// been promised: a library that writes past its end spoils nothing of the service's, and intact()
/// tells. One object serves one call at a time.
class GuardedBuffer {
 public:
  /// The buffer of `size` bytes, zero-filled, and a fresh guard behind it. `size` is well below
  /// the storage.
  char* prepare(std::size_t size);
  /// Whether the bytes directly behind the buffer are as prepare() left them.
  bool intact() const;

 private:
  std::array<char, std::size_t{64} * 1024> storage;  ///< prepare() fills what a call can see
  std::size_t promised = 0;
};
