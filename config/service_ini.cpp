#include "config/service_ini.h"

#include <utility>

#include "util/log/log.h"
#include "util/text/conversion.h"

namespace {

/// The section whose values may be addresses.
constexpr std::string_view kAddressSection = "ACCESS";

}  // namespace

ServiceIni::ServiceIni(std::string file) : path(std::move(file)), ini(kAddressSection) {
  ini.OpenFile(path.c_str(), "r");
}

std::string ServiceIni::value(const char* section, const char* key) const {
  char text[256];
  ini.GetKey(section, key, text, sizeof text);
  return text;
}

void ServiceIni::report(const KnownKeys& known) const {
  if (!failure().empty())
    log_error("%s can't be read (%s): no reader library is loaded and no port is set\n",
              shown(path).c_str(), failure().c_str());
  report_lines(path, lines(), known);
}
