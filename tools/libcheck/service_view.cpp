#include "tools/libcheck/service_view.h"

#include <grp.h>
#include <link.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

namespace fs = std::filesystem;

constexpr char kServiceUser[] = "quorvelserver";
constexpr char kServiceGroup[] = "plugdev";  // the unit's supplementary one

/// What the unit's settings ProtectHome=yes and PrivateTmp=yes hide.
constexpr const char* kHiddenFolders[] = {"/home", "/root", "/run/user", "/tmp", "/var/tmp"};

bool lies_within(const fs::path& path, const fs::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
         folder.end();
}

/// The service's user as the kernel sees it; known to nobody when there is none.
class ServiceUser {
 public:
  ServiceUser() {
    const passwd* user = getpwnam(kServiceUser);  // NOLINT(concurrency-mt-unsafe): one thread
    if (user == nullptr) return;
    known = true;
    uid = user->pw_uid;
    int count = 64;
    groups.resize(static_cast<std::size_t>(count));
    if (getgrouplist(kServiceUser, user->pw_gid, groups.data(), &count) < 0) count = 0;
    groups.resize(static_cast<std::size_t>(count));
    const group* readers = getgrnam(kServiceGroup);  // NOLINT(concurrency-mt-unsafe): one thread
    if (readers != nullptr) groups.push_back(readers->gr_gid);
  }

  /// `permission`: S_IROTH or S_IXOTH.
  bool may(const fs::path& path, mode_t permission) const {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return false;
    if (known && status.st_uid == uid)
      permission <<= 6;
    else if (std::find(groups.begin(), groups.end(), status.st_gid) != groups.end())
      permission <<= 3;
    return (status.st_mode & permission) != 0;
  }

 private:
  bool known = false;
  uid_t uid = 0;
  std::vector<gid_t> groups;
};

}  // namespace

std::string service_obstacle(const std::string& path) {
  std::error_code error;
  const fs::path target = fs::canonical(path, error);
  if (error) return error.message();
  const ServiceUser user;
  fs::path folder;
  for (const fs::path& step : target.parent_path()) {
    folder /= step;
    if (!user.may(folder, S_IXOTH))
      return format_text(translated("its user may not enter %s"),
                         readable_request(folder.string()).c_str());
  }
  if (!user.may(target, S_IROTH)) return translated("its user may not read the file");
  for (const char* hidden : kHiddenFolders)
    if (lies_within(path, hidden) || lies_within(target, hidden))
      return format_text(translated("the unit hides %s from it"), hidden);
  return "";
}

std::set<std::string> loaded_files() {
  std::set<std::string> files;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* out) {
        if (info->dlpi_name[0] == '/')
          static_cast<std::set<std::string>*>(out)->insert(info->dlpi_name);
        return 0;
      },
      &files);
  return files;
}
