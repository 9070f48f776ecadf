#include "util/os/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

int open_or_explain(const char* path, int flags, std::string& reason) {
  constexpr int kHarmless = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;  // whatever it may turn out to be
  const int fd = open(path, flags | kHarmless, 0666);
  struct stat status {};
  if (fd < 0) {
    const bool is_link = errno == ELOOP && (flags & O_NOFOLLOW) != 0;
    reason = is_link ? "it is a link" : std::strerror(errno);
  } else if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    reason = "it is no regular file";
    close(fd);
    return -1;
  }
  return fd;
}

UniqueFile stream_of(int fd, const char* mode, std::string& reason) {
  UniqueFile file(fd >= 0 ? fdopen(fd, mode) : nullptr);
  if (!file && fd >= 0) {
    reason = std::strerror(errno);
    close(fd);
  }
  return file;
}

int flags_of(std::string_view mode) {
  const bool both = mode.find('+') != std::string_view::npos;
  if (mode[0] == 'r') return both ? O_RDWR : O_RDONLY;
  return (both ? O_RDWR : O_WRONLY) | O_CREAT | (mode[0] == 'a' ? O_APPEND : 0);
}

}  // namespace

UniqueFd open_regular(const char* path, int flags, std::string& reason) {
  return UniqueFd(open_or_explain(path, flags, reason));
}

UniqueFile open_regular(const char* path, const char* mode, std::string& reason) {
  UniqueFile file = stream_of(open_or_explain(path, flags_of(mode), reason), mode, reason);
  if (file && mode[0] == 'w' && ftruncate(fileno(file.get()), 0) != 0) {
    reason = std::strerror(errno);
    file.reset();
  }
  return file;
}

UniqueFile open_regular_to_update(const char* path, std::string& reason) {
  return stream_of(open_or_explain(path, O_RDWR | O_NOFOLLOW, reason), "r+", reason);
}
