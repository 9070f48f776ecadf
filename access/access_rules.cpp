#include "access/access_rules.h"

#include <algorithm>

#include "util/text/ascii.h"

namespace {

constexpr std::string_view kSeparators = " \t,";
constexpr std::string_view kOwnNames[] = {"localhost", "127.0.0.1", "[::1]"};
constexpr std::string_view kBelowLocalhost = ".localhost";
constexpr std::size_t kLongestSummary = 800;  // bytes that fit one line of the log

bool ends_with(std::string_view text, std::string_view end) {
  return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
}

bool equal_ignoring_case(std::string_view lowered, std::string_view name) {
  return lowered.size() == name.size() &&
         std::equal(lowered.begin(), lowered.end(), name.begin(),
                    [](char left, char right) { return left == ascii_lower(right); });
}

bool is_allowed_place(const AccessRules& rules, const HostPort& place) {
  if (place.port != 0 && place.port != rules.port) return false;
  const std::string& host = place.host;
  return ends_with(host, kBelowLocalhost) ||
         std::find(std::begin(kOwnNames), std::end(kOwnNames), host) != std::end(kOwnNames) ||
         std::find(rules.hosts.begin(), rules.hosts.end(), host) != rules.hosts.end();
}

/// Whether the page comes from this service: it has the address at which it calls the service.
bool is_own_page(const AccessRules& rules, const Caller& caller, const Origin& origin) {
  if (origin.scheme != own_scheme(caller.tls) || !caller.host) return false;
  const auto place = parse_host_port(*caller.host);
  if (!place || !is_allowed_place(rules, *place)) return false;
  const int port = place->port != 0 ? place->port : default_port(origin.scheme);
  return place->host == origin.place.host && port == origin.place.port;
}

}  // namespace

FunctionNames::FunctionNames(std::string_view list) {
  for (std::size_t begin = 0; begin < list.size();) {
    const std::size_t end = std::min(list.find_first_of(kSeparators, begin), list.size());
    if (end > begin) names.push_back(ascii_lower(list.substr(begin, end - begin)));
    begin = end + 1;
  }
}

bool FunctionNames::contains(std::string_view name) const {
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& own) { return equal_ignoring_case(own, name); });
}

bool AccessRules::may_address(const Caller& caller) const {
  if (!limited) return true;
  if (!caller.host) return caller.on_this_machine;
  const auto place = parse_host_port(*caller.host);
  return place && is_allowed_place(*this, *place);
}

Rights AccessRules::rights_of(const Caller& caller) const {
  if (!sites_limited) return {true};
  if (!caller.origin) return {caller.on_this_machine};
  const auto origin = parse_origin(*caller.origin);
  if (!origin) return {};
  if (is_own_page(*this, caller, *origin)) return {true};
  for (const AllowedSite& allowed : sites)
    if (allowed.site.matches(*origin))
      return {true, allowed.functions ? &*allowed.functions : nullptr};
  return {};
}

std::string AccessRules::summary() const {
  const std::string where = loopback_alone ? " on this machine" : " on any machine";
  if (!sites_limited) return "any page" + where;
  if (sites.empty()) return "no page but the service's own," + where;
  std::string text = "pages of ";
  for (std::size_t i = 0; i < sites.size(); ++i) {
    if (text.size() + sites[i].text.size() > kLongestSummary)
      return text.append("and ").append(std::to_string(sites.size() - i)).append(" more sites,") +
             where;
    text.append(sites[i].text).append(sites[i].functions ? " (some functions), " : ", ");
  }
  return text.substr(0, text.size() - 1) + where;
}
