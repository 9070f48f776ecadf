#pragma once

#include <sys/mman.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <type_traits>

/// One zero-initialised T that a process shares with the children it forks afterwards: what a
/// child writes stays readable after it has crashed.
template <typename T>
class Shared {
  static_assert(std::is_trivially_destructible_v<T>);

 public:
  Shared() {
    void* memory =
        mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)  // NOLINT: mmap's own failure value
      throw std::system_error(errno, std::generic_category(), "shared memory");
    object = new (memory) T();
  }
  ~Shared() { munmap(object, sizeof(T)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  T* operator->() const { return object; }
  T& operator*() const { return *object; }

 private:
  T* object;
};
