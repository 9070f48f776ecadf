#pragma once

#include <cstddef>

struct sockaddr;

/// A check holds the service for milliseconds, so one is made in each pass of the service loop,
/// lest a flood of them hold up everybody else for their sum. Opens the next pass.
void begin_check_pass();
/// Whether a check may be made in this pass: the first to ask may.
bool take_check_turn();

/// Checks that a TCP connection to `ip` (dotted IPv4 text; anything else stands for
/// 255.255.255.255) and the low 16 bits of `port` succeeds, within about four milliseconds, and
/// closes it. On failure `errmsg` of `size` bytes holds the reason (GBK).
bool socket_conn(const char* ip, int port, unsigned char* errmsg, std::size_t size = 200);

/// Connects the socket `fd`, trying again after pauses of 250 µs, 500 µs, 1 ms and so on. `budget`
/// bounds the sum of the pauses in units of 250 µs, the one after the last attempt counted but not
/// made. The socket is in blocking mode afterwards. False, with errno ETIME, when time ran out;
/// false with a reason in `errmsg` of `size` bytes when the socket's mode can't be set.
bool connect_retry(int fd, const sockaddr* addr, unsigned int alen, int budget, char* errmsg,
                   std::size_t size = 200);

/// Set and clear O_NONBLOCK. 0, or -1 on failure.
int set_socket_nonblock(int fd);
int set_socket_block(int fd);
