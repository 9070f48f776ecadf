#include "util/working_directory.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

std::string require_working_directory() {
  char directory[4096];
  if (getcwd(directory, sizeof directory) != nullptr) return directory;
  std::perror("error getcwd");
  std::exit(1);  // NOLINT(concurrency-mt-unsafe): the process has one thread
}
