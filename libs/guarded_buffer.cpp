#include "libs/guarded_buffer.h"

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
  // All bytes are alike when each equals the one before it.
  return guard[0] == kGuardByte && std::memcmp(guard, guard + 1, kGuardSize - 1) == 0;
}
