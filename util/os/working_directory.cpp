#include "util/os/working_directory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "util/log/log.h"

std::string require_working_directory() {
  char directory[4096];
  if (getcwd(directory, sizeof directory) != nullptr) return directory;
  log_bare_error("error getcwd: %s\n", std::strerror(errno));  // NOLINT(concurrency-mt-unsafe)
  std::exit(1);  // NOLINT(concurrency-mt-unsafe): the process has one thread
}
