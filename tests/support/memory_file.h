#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "util/handle/unique_fd.h"

/// A regular file in memory that can be opened by its path; one at a time in a process.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content)
      : name("/quorvel-test-" + std::to_string(getpid())),
        fd(shm_open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600)) {
    require(write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "the input fits into memory");
  }

  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { shm_unlink(name.c_str()); }

  std::string path() const { return "/dev/shm" + name; }
  std::string content() const {
    std::string bytes(static_cast<std::size_t>(lseek(fd.get(), 0, SEEK_END)), '\0');
    const ssize_t length = pread(fd.get(), bytes.data(), bytes.size(), 0);
    require(length == static_cast<ssize_t>(bytes.size()), "the file can be read");
    return bytes;
  }

 private:
  const std::string name;
  const UniqueFd fd;
};
