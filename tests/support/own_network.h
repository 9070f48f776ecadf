#pragma once

/// Moves this process into namespaces of its own, of the network and of the `further` kinds
/// (CLONE_NEW...), as root there. The loopback interface is up and the only one. Call it before the
/// first thread. Takes root, or a system that lets users have namespaces. Throws
/// std::runtime_error.
void enter_own_network(int further = 0);
