#include "util/os/program_path.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

#include "util/text/text_buffer.h"

namespace {

/// An address inside the program, for the dynamic loader to name the file that holds it.
void empty_dladdr() {}

std::string running_executable() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return path;
}

std::string program_file() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&empty_dladdr), &info) == 0 || info.dli_fname == nullptr)
    return running_executable();
  const std::string path = info.dli_fname;
  return path.find('/') == std::string::npos ? running_executable() : path;
}

}  // namespace

std::string program_directory() {
  const std::string path = program_file();
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  std::string directory = path.substr(0, slash);
  // "bin/program" gives "./bin": names below it then count as paths of their own wherever a name
  // without a leading "/" or "." would be taken as lying beside the program once more.
  if (path[0] != '/' && path[0] != '.') directory.insert(0, "./");
  return directory;
}

std::string executable_directory() {
  const std::string path = running_executable();
  return path.substr(0, path.rfind('/'));
}

bool getfilepath(char* out, const char* name, std::size_t size) {
  const std::string path = name[0] == '/' ? name : program_directory() + "/" + name;
  if (copy_text({out, size}, path)) return true;
  if (size > 0) out[0] = '\0';
  return false;
}
