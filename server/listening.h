#pragma once

#include <string>

/// Whether the kernel knows IPv6; without it the service listens on IPv4 addresses alone.
bool kernel_has_ipv6();

/// Whether a socket of this process listens on the TCP port.
bool listens_on(int port);

/// Why the port can't be listened on, with the cure; to be called when that has just failed.
std::string listening_fault(int port);
