#include "tools/libcheck/fenced_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace {

constexpr char kBeforeStart = '\x5A';

std::size_t page_size() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

/// What a signal handler can look up: one entry for each living buffer.
struct Fence {
  const char* name = nullptr;
  std::size_t size = 0;
  const char* begin = nullptr;
  const char* end = nullptr;
};
std::array<Fence, 16> fences;

}  // namespace

FencedBuffer::FencedBuffer(const char* buffer_name, std::size_t size)
    : label(buffer_name), length(size) {
  const std::size_t page = page_size();
  const std::size_t inside = (size + page - 1) / page * page;
  map_size = inside + 2 * page;
  void* memory = mmap(nullptr, map_size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED ||  // NOLINT: mmap's own failure value
      mprotect(static_cast<char*>(memory) + page, inside, PROT_READ | PROT_WRITE) != 0)
    throw std::system_error(errno, std::generic_category(), "memory for a fenced buffer");
  map = static_cast<char*>(memory);
  begin = map + page + inside - size;
  std::memset(map + page, kBeforeStart, inside - size);
  const auto free = std::find_if(fences.begin(), fences.end(),
                                 [](const Fence& fence) { return fence.begin == nullptr; });
  if (free != fences.end()) *free = {label, length, begin + size, begin + size + page};
}

FencedBuffer::FencedBuffer(const char* buffer_name, std::string_view text)
    : FencedBuffer(buffer_name, text.size() + 1) {
  text.copy(begin, text.size());
}

FencedBuffer::~FencedBuffer() {
  for (Fence& fence : fences)
    if (fence.begin == begin + length) fence = {};
  munmap(map, map_size);
}

bool FencedBuffer::start_intact() const {
  return std::all_of(map + page_size(), begin, [](char byte) { return byte == kBeforeStart; });
}

std::string_view FencedBuffer::text() const { return {begin, strnlen(begin, length)}; }

bool FencedBuffer::describe(const void* address, char* out, std::size_t out_size,
                            std::size_t& bytes) {
  const auto* at = static_cast<const char*>(address);
  for (const Fence& fence : fences) {
    if (at < fence.begin || at >= fence.end) continue;
    // Not on POSIX's list for signal handlers, but glibc's touches neither locks nor the heap for
    // this directive.
    std::snprintf(out, out_size, "%s", fence.name);
    bytes = fence.size;
    return true;
  }
  return false;
}
