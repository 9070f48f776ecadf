#include "readers/common/library_file.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "readers/common/failure.h"

namespace {

/// Any object of this library tells the dynamic loader which file is meant.
constexpr char kInThisLibrary = 0;

std::string library_directory() {
  Dl_info info;
  if (dladdr(&kInThisLibrary, &info) == 0 || info.dli_fname == nullptr) return ".";
  std::error_code error;  // a relative path stands for the directory at loading time
  const std::filesystem::path file = std::filesystem::absolute(info.dli_fname, error);
  return error ? "." : file.parent_path().string();
}

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

LibraryFile::LibraryFile(const std::string& name) : full_path(library_directory() + "/" + name) {}

bool LibraryFile::changed() {
  if (stat(full_path.c_str(), &now) != 0)
    throw Failure(failures::kCardFile, full_path + " - " + std::strerror(errno));
  return !same_file(now, state);
}
