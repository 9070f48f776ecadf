#pragma once

#include <string>

/// Moves this process into namespaces of its own, of the network and of the `further` kinds
/// (CLONE_NEW...), as root there. The loopback interface is up and the only one. Call it before the
/// first thread. Takes root, or a system that lets users have namespaces. Throws std::system_error.
void enter_own_network(int further = 0);

/// Gives the loopback interface of that network a second IPv4 address, which is none of
/// 127.0.0.0/8.
void add_outside_address(const std::string& address);
