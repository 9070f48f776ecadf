#include "libs/listing.h"

#include <cstring>
#include <utility>

#include "libs/isolation_settings.h"
#include "util/log/log.h"
#include "util/os/program_path.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

constexpr char kKey[] = "lib";  // with a number behind it
constexpr int kMaxLibraries = 20;
constexpr std::size_t kShortestPath = 6;

/// Sets the full path that the library's value stands for. Why it stands for none, or empty; the
/// log then says what to do.
Gbk set_path(ListedLibrary& library) {
  const char* key = library.key.c_str();
  const char* value = library.value.c_str();
  if (library.value.size() > kLongestLibraryPath) {
    log_error("%s: [%s] %s is longer than %zu characters and was skipped; shorten it\n",
              kServiceIni, kLibrarySection, key, kLongestLibraryPath);
    return format_gbk(messages::kPathTooLong, gbk_of(value));
  }
  if (!names_library(value)) {
    log_warning("%s: [%s] %s=%s names no .so file and was skipped\n", kServiceIni, kLibrarySection,
                key, shown(value).c_str());
    return format_gbk(messages::kNoLibraryFile, gbk_of(value));
  }
  char path[kLongestLibraryPath + 1];
  if (!getfilepath(path, value, sizeof path)) {
    log_error("%s: [%s] %s: its full path is longer than %zu characters and was skipped\n",
              kServiceIni, kLibrarySection, key, kLongestLibraryPath);
    return format_gbk(messages::kPathTooLong, gbk_of(value));
  }
  if (std::strlen(path) < kShortestPath) return format_gbk(messages::kNoLibraryFile, gbk_of(path));
  library.path = path;
  return {};
}

}  // namespace

bool names_library(std::string_view value) { return value.find("so") != std::string_view::npos; }

KnownKeys listing_keys() {
  return together({{{kLibrarySection, kKey, kMaxLibraries}}, isolation_keys()});
}

Listing read_listing(const ServiceIni& ini) {
  const Isolation isolation = read_isolation(ini);
  Listing libraries;
  for (int i = 1; i <= kMaxLibraries; ++i) {
    const std::string key = kKey + std::to_string(i);
    const std::string value = ini.value(kLibrarySection, key.c_str());
    if (value.empty()) continue;
    const auto isolated = isolation.find(key);
    const auto limit = isolated != isolation.end() ? isolated->second : kInProcess;
    ListedLibrary library{key, value, value, limit, {}};
    library.failure = set_path(library);
    libraries.push_back(std::move(library));
  }
  return libraries;
}
