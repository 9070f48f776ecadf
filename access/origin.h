#pragma once

#include <optional>
#include <string>
#include <string_view>

/// A host and its port, as browsers write them: the host in ASCII lower case, an IPv6 literal in
/// brackets and in its shortest form; the port 0 where the text has none.
struct HostPort {
  std::string host;
  int port = 0;
};

/// Takes "host" or "host:port" apart, in any letter case. Nothing when it is neither: no name of
/// letters, digits, "-" and "_", no address, a dot at an end, a port beyond 1 to 65535. A name in
/// another script has its ASCII form (xn--...), as in a browser's headers.
std::optional<HostPort> parse_host_port(std::string_view text);

/// A page's origin. A default port is filled in, so equal origins have equal members.
struct Origin {
  std::string scheme;
  HostPort place;
};

/// Takes the text of an Origin header apart: "https://host" or "https://host:port", likewise http
/// and browsers' extensions. Nothing for anything else, "null" and a path among it.
std::optional<Origin> parse_origin(std::string_view text);

/// Origins as an administrator names them: one, or all whose host has one or more labels in front
/// of the named one.
struct Site {
  Origin origin;
  bool below = false;

  bool matches(const Origin& other) const;
};

/// Takes an origin, or one with "*." in front of its host name, apart. Nothing when it is neither.
std::optional<Site> parse_site(std::string_view text);

/// The scheme of the service's own pages, and the port that their addresses may leave out.
std::string_view own_scheme(bool tls);
int default_port(std::string_view scheme);
