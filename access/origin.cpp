#include "access/origin.h"

#include <arpa/inet.h>

#include <algorithm>

#include "util/os/port.h"
#include "util/text/ascii.h"
#include "util/text/number.h"

namespace {

constexpr std::string_view kSeparator = "://";
constexpr std::string_view kBelow = "*.";
constexpr std::size_t kLongestName = 253;
constexpr std::size_t kLongestLabel = 63;

/// The schemes whose pages have an origin, and the port that it leaves out; 0: it has none.
constexpr struct {
  std::string_view scheme;
  int default_port;
} kSchemes[] = {{"http", 80}, {"https", 443}, {"chrome-extension", 0}, {"moz-extension", 0}};

bool is_name_character(char c) {
  return is_digit(c) || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
}

bool is_ipv4(const std::string& host) {
  in_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

/// The host in lower case, when it is a name, or an IPv4 address: a name whose last label is a
/// number is no name.
std::optional<std::string> parse_name(std::string_view text) {
  std::string name = ascii_lower(text);
  if (name.empty() || name.size() > kLongestName) return {};
  std::size_t label = 0;
  for (const char c : name + ".") {
    if (c != '.' && !is_name_character(c)) return {};
    if (c == '.' && (label == 0 || label > kLongestLabel)) return {};
    label = c == '.' ? 0 : label + 1;
  }
  const std::string_view last = std::string_view(name).substr(name.rfind('.') + 1);
  if (std::all_of(last.begin(), last.end(), is_digit) && !is_ipv4(name)) return {};
  return name;
}

/// The literal without its brackets as browsers print it, with them.
std::optional<std::string> parse_ipv6(std::string_view text) {
  in6_addr address{};
  char shortest[INET6_ADDRSTRLEN];
  if (inet_pton(AF_INET6, std::string(text).c_str(), &address) != 1) return {};
  if (inet_ntop(AF_INET6, &address, shortest, sizeof shortest) == nullptr) return {};
  return "[" + std::string(shortest) + "]";
}

/// The port behind a colon, or nothing.
std::optional<int> parse_port(std::string_view digits) {
  return digits.substr(0, 1) == "0" ? std::nullopt : whole_number(digits, 1, kHighestPort);
}

}  // namespace

std::optional<HostPort> parse_host_port(std::string_view text) {
  const bool literal = !text.empty() && text[0] == '[';
  const std::size_t end = literal ? text.find(']') : std::min(text.find(':'), text.size());
  if (end == std::string_view::npos) return {};
  const std::string_view rest = text.substr(literal ? end + 1 : end);
  const auto host = literal ? parse_ipv6(text.substr(1, end - 1)) : parse_name(text.substr(0, end));
  if (!host) return {};
  if (rest.empty()) return HostPort{*host, 0};
  const auto port = rest[0] == ':' ? parse_port(rest.substr(1)) : std::nullopt;
  return port ? std::optional<HostPort>({*host, *port}) : std::nullopt;
}

std::optional<Origin> parse_origin(std::string_view text) {
  const std::size_t colon = text.find(kSeparator);
  if (colon == std::string_view::npos) return {};
  std::string scheme = ascii_lower(text.substr(0, colon));
  const bool known = std::any_of(std::begin(kSchemes), std::end(kSchemes),
                                 [&](const auto& row) { return row.scheme == scheme; });
  auto place = parse_host_port(text.substr(colon + kSeparator.size()));
  if (!known || !place) return {};
  if (place->port == 0) place->port = default_port(scheme);
  return Origin{std::move(scheme), std::move(*place)};
}

bool Site::matches(const Origin& other) const {
  if (other.scheme != origin.scheme || other.place.port != origin.place.port) return false;
  if (!below) return other.place.host == origin.place.host;
  const std::string end = "." + origin.place.host;
  const std::string_view host = other.place.host;
  return host.size() > end.size() && host.substr(host.size() - end.size()) == end;
}

std::optional<Site> parse_site(std::string_view text) {
  std::string plain(text);
  const std::size_t star = plain.find(std::string(kSeparator).append(kBelow));
  const bool below = star != std::string::npos;
  if (below) plain.erase(star + kSeparator.size(), kBelow.size());
  const auto origin = parse_origin(plain);
  if (!origin) return {};
  // There are no names in front of an address.
  if (below && (origin->place.host[0] == '[' || is_ipv4(origin->place.host))) return {};
  return Site{*origin, below};
}

std::string_view own_scheme(bool tls) { return tls ? "https" : "http"; }

int default_port(std::string_view scheme) {
  for (const auto& row : kSchemes)
    if (row.scheme == scheme) return row.default_port;
  return 0;
}
