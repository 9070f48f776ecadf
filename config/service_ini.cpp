#include "config/service_ini.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "config/known_keys.h"
#include "util/language/language.h"
#include "util/log/log.h"
#include "util/os/port.h"
#include "util/text/ascii.h"
#include "util/text/format.h"

namespace {

const KnownKeys& known_keys() {
  static const KnownKeys keys = {
      {"REGISTER", "lib", 20},
      {"SERVER", "localport", 0},
      {"LOG", "charset", 0},
      {"ISOLATED", "", 0},
  };
  return keys;
}

constexpr std::size_t kLongestPortValue = 9;

}  // namespace

ServiceIni::ServiceIni(std::string file)
    : path(std::move(file)), readable(ini.OpenFile(path.c_str(), "r") == 0) {
  if (!readable)
    log_error("%s can't be read (%s): no reader library is loaded and no port is set\n",
              path.c_str(), ini.failure().c_str());
  report_lines(path, ini.lines(), known_keys());
}

int ServiceIni::listening_port() {
  const std::string value = ini.GetStr("SERVER", "localport");
  const std::string_view digits =
      std::string_view(value).substr(std::min(value.find_first_not_of(" \t"), value.size()));
  int port = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  const bool ends = end == digits.data() + digits.size() || *end == ' ' || *end == '\t';
  if (error == std::errc() && ends && value.size() <= kLongestPortValue && port > 0 &&
      port <= kHighestPort)
    return port;
  std::string found = translated("has no line localport= in [SERVER]");
  for (const IniLine& line : ini.lines())
    if (plain_name(line.key) == "localport")
      found = format_text(translated("names no port in line %d, \"%s\""), line.number,
                          line.text.c_str());
  if (!readable) found = format_text(translated("can't be read (%s)"), ini.failure().c_str());
  log_error(
      "%s %s: write localport=47392, or another port from 1 to %d, without blanks under [SERVER]\n",
      path.c_str(), found.c_str(), kHighestPort);
  return 0;
}

bool ServiceIni::log_in_utf8() {
  const std::string value = ascii_lower(std::string(ini.GetStr("LOG", "charset")));
  if (!value.empty() && value != "utf-8" && value != "gbk")
    log_error("%s: [LOG] charset=%s is not known: write utf-8 or gbk, which is the default\n",
              path.c_str(), value.c_str());
  return value == "utf-8";
}
