#include "config/service_ini.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "config/known_keys.h"
#include "util/language/language.h"
#include "util/log/log.h"
#include "util/os/port.h"
#include "util/text/ascii.h"
#include "util/text/format.h"
#include "util/text/number.h"

namespace {

const KnownKeys& known_keys() {
  static const KnownKeys keys = {
      {"REGISTER", "lib", 20}, {"SERVER", "localport", 0}, {"LOG", "charset", 0},
      {"ISOLATED", "", 0},     {"ACCESS", "origin", 50},   {"ACCESS", "functions", 50},
      {"ACCESS", "host", 50},  {"ACCESS", "listen", 0},
  };
  return keys;
}

/// The section whose values may hold the brackets of an IPv6 address.
constexpr std::string_view kSectionWithBrackets = "ACCESS";

constexpr std::size_t kLongestPortValue = 9;

/// Gives key lines with brackets, and what follows them, back to their section.
std::vector<IniLine> with_brackets(std::vector<IniLine> lines) {
  std::string section;
  for (IniLine& line : lines) {
    const std::size_t equals = line.text.find('=');
    if (!is_header(line)) {
      line.section = section;
    } else if (section == kSectionWithBrackets && equals < line.text.find('[')) {
      line.section = section;
      line.key = line.text.substr(0, equals);
    } else {
      section = line.section;
    }
  }
  return lines;
}

}  // namespace

ServiceIni::ServiceIni(std::string file)
    : path(std::move(file)),
      readable(ini.OpenFile(path.c_str(), "r") == 0),
      file_lines(with_brackets(ini.lines())) {
  if (!readable)
    log_error("%s can't be read (%s): no reader library is loaded and no port is set\n",
              path.c_str(), ini.failure().c_str());
  report_lines(path, file_lines, known_keys());
}

bool ServiceIni::misses(const IniLine& line, std::string_view section) {
  if (is_header(line))
    return line.section != section && plain_name(line.section) == plain_name(section);
  const bool inside = line.section == section;
  for (const KnownKey& known : known_keys())
    if (known.section == section && known.is(inside ? line.key : plain_name(line.key)))
      return !inside;
  return inside;
}

int ServiceIni::listening_port() {
  const std::string value = ini.GetStr("SERVER", "localport");
  const std::string_view word =
      std::string_view(value).substr(std::min(value.find_first_not_of(" \t"), value.size()));
  const auto port = whole_number(word.substr(0, word.find_first_of(" \t")), 1, kHighestPort);
  if (port && value.size() <= kLongestPortValue) return *port;
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
  const std::string value = ascii_lower(ini.GetStr("LOG", "charset"));
  if (!value.empty() && value != "utf-8" && value != "gbk")
    log_error("%s: [LOG] charset=%s is not known: write utf-8 or gbk, which is the default\n",
              path.c_str(), value.c_str());
  return value == "utf-8";
}
