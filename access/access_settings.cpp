#include "access/access_settings.h"

#include <algorithm>
#include <map>

#include "util/language/language.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/number.h"

namespace {

constexpr const char* kSection = kAccessSection;
constexpr const char* kOrigin = kOriginKey;
constexpr char kFunctions[] = "functions";
constexpr char kHost[] = "host";
constexpr char kListen[] = "listen";
constexpr std::string_view kLikeFunctions = "func";
constexpr int kMostSites = 50;
constexpr int kMostHosts = 50;

/// The values of one kind of keys by their number; 0 for a key without one.
using Values = std::map<int, std::string>;

/// What the file holds for the section, and what of it is in doubt.
struct Found {
  std::map<std::string, Values> values;  ///< by the key's name without its number
  bool in_doubt = false;                 ///< a line misses the section, or the section occurs again
  bool functions_in_doubt = false;       ///< such a line looks like functionsN
};

void keep(Found& found, const IniLine& line) {
  const std::size_t digits = std::min(line.key.find_first_of("0123456789"), line.key.size());
  const int number = whole_number(line.key.substr(digits), 1).value_or(0);
  found.values[line.key.substr(0, digits)][number] = line.text.substr(line.text.find('=') + 1);
}

Found find_values(const ServiceIni& ini) {
  Found found;
  for (const IniLine& line : ini.lines()) {
    const bool inside = line.section == kSection;
    if (line.text[0] == '#') continue;  // no comment to the reader of the file, but to its writer
    if (misses(line, kSection, access_keys())) {
      found.in_doubt = true;
      found.functions_in_doubt |= ascii_lower(line.text).rfind(kLikeFunctions, 0) == 0;
    } else if (inside && !line.key.empty()) {
      keep(found, line);
    } else if (inside) {
      // As for every section, the last one of its name counts.
      found.in_doubt |= !found.values.empty();
      found.values.clear();
    }
  }
  return found;
}

void report(const ServiceIni& ini, const char* key, int number, const std::string& value,
            const char* what) {
  log_error("%s: [%s] %s%s=%s: %s\n", shown(ini.file()).c_str(), kSection, key,
            number == 0 ? "" : std::to_string(number).c_str(), shown(value).c_str(),
            translated(what));
}

std::vector<std::string> read_hosts(const ServiceIni& ini, const Values& values) {
  std::vector<std::string> hosts;
  for (const auto& [number, value] : values) {
    const auto place = parse_host_port(value);
    if (place && place->port == 0)
      hosts.push_back(place->host);
    else
      report(ini, kHost, number, value,
             "no host name, and without effect; write a name or an address such as "
             "reader.example.org, without blanks, scheme and port");
  }
  return hosts;
}

/// The functions of the site with that number; nothing when it may call all.
std::optional<FunctionNames> read_functions(const ServiceIni& ini, Found& found, int number) {
  Values& values = found.values[kFunctions];
  const auto listed = values.find(number);
  if (listed == values.end())
    return found.functions_in_doubt ? std::optional<FunctionNames>("") : std::nullopt;
  FunctionNames names(listed->second);
  if (names.empty())
    report(ini, kFunctions, number, listed->second,
           "names no function, so the site may call none; write their names, or remove the line");
  return names;
}

std::vector<AllowedSite> read_sites(const ServiceIni& ini, Found& found) {
  std::vector<AllowedSite> sites;
  const Values& origins = found.values[kOrigin];
  for (const auto& [number, value] : origins) {
    const auto site = parse_site(value);
    if (site)
      sites.push_back({value, *site, read_functions(ini, found, number)});
    else
      report(ini, kOrigin, number, value, kNoOrigin);
  }
  for (const auto& [number, value] : found.values[kFunctions])
    if (origins.count(number) == 0)
      report(ini, kFunctions, number, value,
             "there is no site of that number; write its origin with the same number");
  return sites;
}

bool read_loopback_alone(const ServiceIni& ini, const Found& found) {
  const auto listed = found.values.find(kListen);
  if (listed == found.values.end()) return found.in_doubt;
  const std::string value = listed->second.begin()->second;
  if (value != "all" && value != "loopback")
    report(ini, kListen, 0, value, "not known, so loopback is taken; write all or loopback");
  return value != "all";
}

}  // namespace

const KnownKeys& access_keys() {
  static const KnownKeys keys = {{kSection, kOrigin, kMostSites},
                                 {kSection, kFunctions, kMostSites},
                                 {kSection, kHost, kMostHosts},
                                 {kSection, kListen, 0}};
  return keys;
}

const char* const kNoOrigin = translatable(
    "no origin, and admits nobody; write it as the browser sends it, such as "
    "https://portal.example.org:8443 or https://*.example.org, without blanks and path");

AccessRules read_access(const ServiceIni& ini, int port) {
  AccessRules rules;
  rules.port = port;
  Found found = find_values(ini);
  if (found.values.empty() && !found.in_doubt) return rules;
  if (found.in_doubt)
    log_error(
        "%s: lines meant for [%s] have no effect, see above; until they are corrected, all stays "
        "closed that they may have closed\n",
        shown(ini.file()).c_str(), kSection);
  rules.limited = true;
  rules.loopback_alone = read_loopback_alone(ini, found);
  rules.sites_limited = found.in_doubt || found.values.count(kOrigin) != 0;
  rules.hosts = read_hosts(ini, found.values[kHost]);
  rules.sites = read_sites(ini, found);
  return rules;
}
