#pragma once

#include <unistd.h>

/// Owner of one file descriptor; closes it at the end of its life.
class UniqueFd {
 public:
  explicit UniqueFd(int descriptor) : fd(descriptor) {}
  ~UniqueFd() {
    if (fd >= 0) close(fd);
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd; }

 private:
  int fd;
};
