#pragma once

#include <string>
#include <string_view>

/// A client's frame as it stands on the wire, masked. `head` is its first byte: FIN bit 0x80,
/// reserved bits and the opcode.
std::string masked_frame(unsigned char head, std::string_view payload);

/// A server's frame, which is not masked.
std::string unmasked_frame(unsigned char head, std::string_view payload);
