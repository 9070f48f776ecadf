#pragma once

#include <unistd.h>

#include <utility>

/// Owner of one file descriptor; closes it at the end of its life. Below 0: none.
class UniqueFd {
 public:
  explicit UniqueFd(int descriptor = -1) : fd(descriptor) {}
  UniqueFd(UniqueFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
  }
  ~UniqueFd() {
    if (fd >= 0) close(fd);
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd; }
  /// Gives the descriptor out of hand, to somebody who closes it.
  int release() { return std::exchange(fd, -1); }
  void reset() { UniqueFd closing(std::move(*this)); }

 private:
  int fd;
};
