#include "libs/guarded_buffer.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace {

/// A text that overruns touches the first bytes behind its buffer; no text holds this byte there.
constexpr std::size_t kGuardSize = 64;
constexpr char kGuardByte = '\x01';

}  // namespace

char* GuardedBuffer::prepare(std::size_t size) {
  assert(size + kGuardSize <= storage.size());
  promised = size;
  std::memset(storage.data(), 0, size);
  std::memset(storage.data() + size, kGuardByte, kGuardSize);
  return storage.data();
}

bool GuardedBuffer::intact() const {
  const char* guard = storage.data() + promised;
  return std::all_of(guard, guard + kGuardSize, [](char byte) { return byte == kGuardByte; });
}
