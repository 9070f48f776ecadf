#pragma once

#include <cstddef>

/// Interfaces that get_localip asks for, and the room that their addresses need: up to 15
/// characters and a semicolon each, and the terminator.
inline constexpr std::size_t kMaxInterfaces = 32;
inline constexpr std::size_t kAddressListSize = kMaxInterfaces * 16 + 1;

/// Appends the IPv4 address of each interface, loopback included, each followed by ";", to the
/// NUL-terminated text in `out` of `size` bytes. An address that would not fit whole is left out.
/// Returns 0 when at least one address was appended, -1 otherwise.
int get_localip(char* out, std::size_t size = kAddressListSize);

/// Whether the other end of the connected TCP socket has a loopback address: 127.0.0.0/8 or ::1.
/// False when that can't be told.
bool peer_is_on_loopback(int descriptor);
