#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "util/handle/unique_fd.h"

/// A file in memory that can be opened by its path.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content) : fd(memfd_create("fuzz", MFD_CLOEXEC)) {
    require(write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "the input fits into memory");
  }

  std::string path() const { return "/proc/self/fd/" + std::to_string(fd.get()); }
  std::string content() const {
    std::string bytes(static_cast<std::size_t>(lseek(fd.get(), 0, SEEK_END)), '\0');
    const ssize_t length = pread(fd.get(), bytes.data(), bytes.size(), 0);
    require(length == static_cast<ssize_t>(bytes.size()), "the file can be read");
    return bytes;
  }

 private:
  UniqueFd fd;
};
