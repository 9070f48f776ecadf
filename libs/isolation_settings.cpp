#include "libs/isolation_settings.h"

#include <algorithm>

#include "libs/listing.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/number.h"

namespace {

constexpr char kSection[] = "ISOLATED";
constexpr int kDefaultSeconds = 30;
constexpr int kMostSeconds = 3600;

/// The key that must have been meant: without the blanks and capitals that the reader of the file
/// takes as they stand.
std::string meant_key(std::string key) {
  key.erase(std::remove_if(key.begin(), key.end(), [](char c) { return c == ' ' || c == '\t'; }),
            key.end());
  return ascii_lower(key);
}

}  // namespace

const KnownKeys& isolation_keys() {
  static const KnownKeys keys = {{kSection, "", 0}};
  return keys;
}

Isolation read_isolation(const ServiceIni& ini) {
  Isolation isolation;
  for (const std::string& key : ini.keys(kSection)) {
    const std::string value = ini.value(kSection, key.c_str());
    const std::string library = meant_key(key);
    if (ini.value(kLibrarySection, library.c_str()).empty()) {
      log_error("%s: [%s] %s: [%s] lists no library under this key; correct or remove the line\n",
                kServiceIni, kSection, shown(key).c_str(), kLibrarySection);
      continue;
    }
    const auto read = whole_number(value, 1, kMostSeconds);
    const int seconds = read.value_or(kDefaultSeconds);
    if (!read || key != library)
      log_error(
          "%s: [%s] %s=%s is taken as %s=%d; write whole seconds from 1 to %d, and no blanks\n",
          kServiceIni, kSection, shown(key).c_str(), shown(value).c_str(), shown(library).c_str(),
          seconds, kMostSeconds);
    isolation[library] = std::chrono::seconds(seconds);
  }
  return isolation;
}
