#pragma once

#include <string>
#include <vector>

/// Where a socket of the service listens: at one address, or, with null, at all.
struct ListeningPlace {
  const char* address;  ///< as text
  int family;           ///< AF_INET or AF_INET6; the latter takes IPv4 as well at all addresses
};

/// Where the service is to listen. IPv6 has its place where the kernel has it.
std::vector<ListeningPlace> listening_places(bool loopback_alone);

/// Whether a socket of this process listens on the TCP port of the place.
bool listens_on(const ListeningPlace& place, int port);

/// Why the port can't be listened on, with the cure; to be called when that has just failed.
std::string listening_fault(const std::vector<ListeningPlace>& places, int port);
