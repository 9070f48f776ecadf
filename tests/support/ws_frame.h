#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/support/tcp_socket.h"

// WebSocket by hand: for what no library would send, and where a client may cost next to nothing.

/// The header lines that ask for an upgrade to WebSocket with sub-protocol "ws", and the empty
/// line.
extern const std::string_view kUpgradeHeaders;

/// Connects to a service on 127.0.0.1 and upgrades; frames are left to the caller. Throws
/// std::runtime_error, also when the service refuses.
TcpSocket connect_ws(uint16_t port);

/// A client's frame as it stands on the wire, masked. `head` is its first byte: FIN bit 0x80,
/// reserved bits and the opcode.
std::string masked_frame(unsigned char head, std::string_view payload);

/// A server's frame, which is not masked.
std::string unmasked_frame(unsigned char head, std::string_view payload);
