#include "config/service_ini.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <string_view>
#include <utility>

#include "util/log/log.h"
#include "util/text/ascii.h"

namespace {

/// A key that the file may hold; with `numbers`, the keys from key1 to that. Keys of a section
/// without a key here are checked by who reads them.
struct KnownKey {
  std::string_view section;
  std::string_view key;
  int numbers;
};
constexpr KnownKey kKnownKeys[] = {
    {"REGISTER", "lib", 20},
    {"SERVER", "localport", 0},
    {"LOG", "charset", 0},
    {"ISOLATED", "", 0},
};

constexpr int kHighestPort = 65535;

/// The name without blanks around it, in lower case: what its writer may have meant.
std::string plain(std::string_view name) {
  const std::size_t first = name.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return ascii_lower(std::string(name.substr(first, name.find_last_not_of(" \t") + 1 - first)));
}

constexpr std::size_t kLongestPortValue = 9;

bool is_key(const KnownKey& known, std::string_view key) {
  if (known.numbers == 0) return key == known.key || known.key.empty();
  for (int number = 1; number <= known.numbers; ++number)
    if (key == std::string(known.key) + std::to_string(number)) return true;
  return false;
}

bool is_known_section(std::string_view section) {
  return std::any_of(std::begin(kKnownKeys), std::end(kKnownKeys),
                     [&](const KnownKey& known) { return section == known.section; });
}

/// Why the key has no effect in its section; empty when it is known.
std::string fault_of_key(const IniLine& line) {
  std::string meant;
  for (const KnownKey& known : kKnownKeys) {
    if (is_key(known, line.key) && line.section == known.section) return {};
    if (!known.key.empty() && is_key(known, plain(line.key))) {
      meant = ": write " + plain(line.key) + "=... without blanks under [";
      meant.append(known.section).append("]");
    }
  }
  return "there is no such key" + meant;
}

std::string fault_of_line(const IniLine& line, bool repeated) {
  if (is_section_header(line.text)) {
    if (repeated) return "the section occurs again: its lines above do not count";
    if (is_known_section(line.section)) return {};
    return "there is no such section: what follows it is skipped";
  }
  if (line.key.empty()) return "it is neither a section nor a key=value";
  if (!is_known_section(line.section))
    return line.section.empty() ? "it stands in no section" : std::string();
  const std::string fault = fault_of_key(line);
  return fault.empty() && repeated ? "the key occurs again: its line above does not count" : fault;
}

}  // namespace

ServiceIni::ServiceIni(std::string file)
    : path(std::move(file)), readable(ini.OpenFile(path.c_str(), "r") == 0) {
  if (!readable)
    log_error("%s can't be read (%s): no reader library is loaded and no port is set\n",
              path.c_str(), ini.failure().c_str());
  report_lines();
}

void ServiceIni::report_lines() const {
  std::set<std::pair<std::string, std::string>> met;
  for (const IniLine& line : ini.lines()) {
    const std::string fault = fault_of_line(line, !met.emplace(line.section, line.key).second);
    if (!fault.empty())
      log_warning("%s: line %d, \"%s\": %s\n", path.c_str(), line.number, line.text.c_str(),
                  fault.c_str());
  }
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
  std::string found = "has no line localport= in [SERVER]";
  for (const IniLine& line : ini.lines())
    if (plain(line.key) == "localport")
      found = "names no port in line " + std::to_string(line.number) + ", \"" + line.text + "\"";
  if (!readable) found = "can't be read (" + ini.failure() + ")";
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
