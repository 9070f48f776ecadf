#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "access/origin.h"

/// Names of functions, compared whole and without regard to ASCII letter case.
class FunctionNames {
 public:
  /// Takes names that are separated by blanks, tabs or commas.
  explicit FunctionNames(std::string_view list);

  bool contains(std::string_view name) const;
  bool empty() const { return names.empty(); }

 private:
  std::vector<std::string> names;
};

/// A site whose pages may use the service, and what they may call; without `functions` everything.
struct AllowedSite {
  std::string text;  ///< as its administrator wrote it
  Site site;
  std::optional<FunctionNames> functions;
};

/// What a request tells of who sends it. A header that the request does not have is nothing.
struct Caller {
  std::optional<std::string> host;    ///< the Host header
  std::optional<std::string> origin;  ///< the Origin header, which every browser sends for a page
  bool tls = false;                   ///< the request came over TLS
  bool on_this_machine = false;       ///< from a loopback address
};

/// What a connection may do. `functions` is null when everything, and lives as long as the rules.
struct Rights {
  bool admitted = false;
  const FunctionNames* functions = nullptr;
};

/// Who may use the service. By default everybody may do everything; each member closes something.
struct AccessRules {
  int port = 0;                 ///< that the service listens on
  bool limited = false;         ///< only requests that address the service by one of `hosts`
  bool loopback_alone = false;  ///< with `limited`: listen on the loopback addresses alone
  bool sites_limited = false;   ///< with `limited`: only pages of `sites`; the first match counts
  std::vector<std::string> hosts;  ///< as HostPort has them, beside those that always count
  std::vector<AllowedSite> sites;

  /// Whether a request may be answered at all. Only a program on this machine may leave out Host,
  /// since every browser sends it.
  bool may_address(const Caller& caller) const;

  /// What a WebSocket connection of that caller, who may address the service, gets.
  Rights rights_of(const Caller& caller) const;

  /// Who may use the service, for people.
  std::string summary() const;
};
