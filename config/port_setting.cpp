#include "config/port_setting.h"

#include <algorithm>
#include <string_view>

#include "util/language/language.h"
#include "util/log/log.h"
#include "util/os/port.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/number.h"

namespace {

constexpr char kSection[] = "SERVER";
constexpr char kKey[] = "localport";
constexpr std::size_t kLongestValue = 9;

/// The number that the value begins with, blanks aside; 0 when it is no port.
int parse_port(std::string_view value) {
  if (value.size() > kLongestValue) return 0;
  value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
  return whole_number(value.substr(0, value.find_first_of(" \t")), 1, kHighestPort).value_or(0);
}

/// What the file has instead of a port.
std::string describe_fault(const ServiceIni& ini) {
  if (!ini.failure().empty())
    return format_text(translated("can't be read (%s)"), ini.failure().c_str());
  std::string found = translated("has no line localport= in [SERVER]");
  for (const IniLine& line : ini.lines())
    if (plain_name(line.key) == kKey)
      found = format_text(translated("names no port in line %d, \"%s\""), line.number,
                          shown(line.text).c_str());
  return found;
}

}  // namespace

const KnownKeys& port_keys() {
  static const KnownKeys keys = {{kSection, kKey, 0}};
  return keys;
}

int read_port(const ServiceIni& ini) {
  const int port = parse_port(ini.value(kSection, kKey));
  if (port == 0)
    log_error(
        "%s %s: write localport=47392, or another port from 1 to %d, without blanks under "
        "[SERVER]\n",
        shown(ini.file()).c_str(), describe_fault(ini).c_str(), kHighestPort);
  return port;
}
