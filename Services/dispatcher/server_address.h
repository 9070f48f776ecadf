#pragma once

#include <cstddef>

#include "util/text/text_buffer.h"

// The back-end server's address, in quorvel.ini beside the program. Reasons and replies are GBK.

inline constexpr char kServerIni[] = "quorvel.ini";

/// Size in bytes of the field for a reason text.
inline constexpr std::size_t kReasonSize = 200;

/// Answers "getconfig": writes the stored address as the reply to `out`. False, with a failure
/// reply, when the file can't be read.
bool read_server_address(TextBuffer out);

/// Answers "config": stores the address that the command text names in "ip" and "port". False,
/// with a failure reply, unless it has been stored. The second one in one pass of the service loop
/// whose address would have to be checked is refused as busy (see begin_check_pass).
bool update_server_address(const char* command, TextBuffer out);

/// Stores the address once a TCP connection to it has succeeded. On failure `errmsg` holds the
/// reason and nothing is stored. A file that can't be written is reported on standard output
/// and in the log only.
bool store_server_address(const char* ip, int port, TextBuffer errmsg);

/// Says in the log what of the file the service, or a page, can't use, with the cure.
void report_server_address_faults();
