#include "tools/libcheck/watch.h"

#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <tuple>

#include "tools/libcheck/interrupt.h"
#include "util/language/language.h"

namespace {

/// Between two looks. Nothing changes between them in a file that is complete, unless its writer
/// pauses for longer; then the next change brings the next run.
constexpr std::chrono::milliseconds kPause(250);

/// What changes with the file's content. A linker makes a new file, others write into the old one.
struct FileState {
  explicit FileState(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    size = status.st_size;
    identity = {status.st_dev, status.st_ino};
    written = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  }
  bool operator==(const FileState& other) const {
    return std::tie(size, identity, written) == std::tie(other.size, other.identity, other.written);
  }

  off_t size = 0;
  std::pair<dev_t, ino_t> identity;
  std::pair<time_t, long> written;
};

FileState next_look(const std::string& path) {
  wait_readable(-1, kPause);
  return FileState(path);
}

/// Waits until the file differs from `old` and has come to rest.
FileState wait_for_other(const std::string& path, const FileState& old) {
  FileState last(path);
  for (;;) {
    const FileState now = next_look(path);
    if (now.size > 0 && now == last && !(now == old)) return now;
    last = now;
  }
}

void print_heading(const std::string& path) {
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  localtime_r(&now, &local);
  char clock[16];
  const std::string time(clock, std::strftime(clock, sizeof clock, "%H:%M:%S", &local));
  std::printf("==== %s  %s\n", time.c_str(), path.c_str());
  std::fflush(stdout);
}

}  // namespace

int watch(const std::string& path, const std::function<int()>& run) {
  int status = 0;
  try {
    for (FileState seen("");;) {
      seen = wait_for_other(path, seen);
      print_heading(path);
      status = run();
      std::fputs(translated("==== waiting for the next build; Ctrl-C ends\n"), stdout);
      std::fflush(stdout);
    }
  } catch (const Interrupted&) {
    std::printf("\n");
  }
  return status;
}
