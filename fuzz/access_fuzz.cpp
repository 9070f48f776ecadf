// The rules of access, against checks on the texts themselves.
// Input: Origin NUL Host NUL function name NUL, then what follows "origin1=" in the file.

#include <cstring>
#include <string>

#include "access/access_settings.h"
#include "config/service_ini.h"
#include "fuzz/input.h"
#include "tests/support/memory_file.h"
#include "util/log/log.h"
#include "util/text/ascii.h"

namespace {

std::string print(const HostPort& place) {
  return place.host + (place.port == 0 ? "" : ":" + std::to_string(place.port));
}

std::string print(const Origin& origin) {
  HostPort place = origin.place;
  if (place.port == default_port(origin.scheme)) place.port = 0;
  return origin.scheme + "://" + print(place);
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// What was taken apart says no more than the text did: printed, it is the text, but for letter
/// case, the default port and the form of an IPv6 address.
void check_texts(const std::string& origin_text, const std::string& host_text) {
  if (const auto place = parse_host_port(host_text); place && host_text[0] != '[')
    require(print(*place) == ascii_lower(host_text), "a host is what it was");
  const auto origin = parse_origin(origin_text);
  if (!origin) return;
  const auto again = parse_origin(print(*origin));
  require(again && print(*again) == print(*origin), "a print is read as it was meant");
  const std::string port = ":" + std::to_string(origin->place.port);
  if (origin->place.host[0] != '[')
    require(ascii_lower(origin_text) == print(*origin) ||
                ascii_lower(origin_text) == print(*origin) + port,
            "an origin is what it was");
}

void check_function(const std::string& list, const std::string& name) {
  constexpr const char* kSeparators = " \t,";
  if (name.empty() || name.find_first_of(kSeparators) != std::string::npos) return;
  const std::string text = " " + ascii_lower(list) + " ";
  bool listed = false;
  for (std::size_t at = 0; (at = text.find(ascii_lower(name), at)) != std::string::npos; ++at)
    listed |= std::strchr(kSeparators, text[at - 1]) != nullptr &&
              std::strchr(kSeparators, text[at + name.size()]) != nullptr;
  require(FunctionNames(list).contains(name) == listed, "names are compared whole");
}

/// A file with an originN closes the service, whatever else stands in it.
void check_rules(const AccessRules& rules, const std::string& content, Caller caller) {
  require(rules.limited && rules.sites_limited, "an originN limits the sites");
  const bool admitted = rules.may_address(caller) && rules.rights_of(caller).admitted;
  const auto origin = parse_origin(*caller.origin);
  require(origin || !admitted, "what is no origin is refused");
  if (!admitted) return;
  const auto host = parse_host_port(*caller.host);
  require(host.has_value(), "what is no host is refused");
  const bool own = host->host == origin->place.host && origin->scheme == "http";
  bool named = false;
  for (const AllowedSite& site : rules.sites) {
    require(content.find(site.text) != std::string::npos, "a site stands in the file");
    const std::string& end = site.site.origin.place.host;
    named |= ends_with(origin->place.host, site.site.below ? "." + end : end);
  }
  require(own || named, "an admitted origin is the service's own, or named");
  caller.origin.reset();
  caller.on_this_machine = false;
  require(!rules.rights_of(caller).admitted, "programs elsewhere are refused");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  set_log_levels(0);
  Input input(data, size);
  const std::string origin = input.text();
  const std::string host = input.text();
  const std::string name = input.text();
  const std::string rest = input.rest();
  check_texts(origin, host);
  check_function(rest.substr(0, rest.find('\0')), name);
  const std::string content = "[ACCESS]\norigin1=" + rest;
  const MemoryFile file(content);
  check_rules(read_access(ServiceIni(file.path()), 47392), content, {host, origin, false, true});
  return 0;
}
