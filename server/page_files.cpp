#include "server/page_files.h"

#include <fcntl.h>
#include <libwebsockets.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "util/handle/unique_fd.h"
#include "util/log/log.h"
#include "util/text/conversion.h"

namespace {

/// libwebsockets' own way with files, and the same with open_guarded in front. One context serves.
const lws_plat_file_ops* platform_files = nullptr;
lws_plat_file_ops guarded_files{};

std::string real_path(const char* path) {
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(path, nullptr), &std::free);
  return real ? real.get() : "";
}

/// Why the file must not be served; null when it may be. A folder may be opened: its index is asked
/// for next.
const char* refusal(int fd, const std::string& descriptor) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)))
    return "it is no regular file";
  const std::string folder = real_path(kPageFolder);
  const std::string file = real_path(descriptor.c_str());
  const bool inside = !folder.empty() && file.compare(0, folder.size(), folder) == 0 &&
                      (file.size() == folder.size() || file[folder.size()] == '/');
  return inside ? nullptr : "it leads out of the page's folder";
}

/// Opens the file once without waiting for anybody, and hands on that very file.
lws_fop_fd_t open_guarded(const lws_plat_file_ops*, const char* name, const char* inner,
                          lws_fop_flags_t* flags) {
  const UniqueFd file(open(name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file.get() < 0) return nullptr;
  const std::string descriptor = "/proc/self/fd/" + std::to_string(file.get());
  if (const char* reason = refusal(file.get(), descriptor)) {
    log_warning("%s is not served: %s\n", shown(name).c_str(), reason);
    return nullptr;
  }
  return platform_files->LWS_FOP_OPEN(platform_files, descriptor.c_str(), inner, flags);
}

}  // namespace

void guard_page_files(lws_context* context) {
  platform_files = lws_get_fops(context);
  guarded_files = *platform_files;
  guarded_files.LWS_FOP_OPEN = open_guarded;
  lws_set_fops(context, &guarded_files);
}
