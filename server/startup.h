#pragma once

#include <cstddef>
#include <string>

/// 1 when the working directory's path contains "quorvelkglserver", else 0; -1 until getcurlx ran.
extern int curlx;

/// Sets curlx and returns it. Ends the process with status 1 when the working directory can't be
/// read.
int getcurlx();

/// Waits a moment, then ends the process like getcurlx when the working directory can't be read.
void settle_in_working_directory();

/// Keeps the service's messages from harming it. Of the descriptors 0 to 2, closed ones become
/// /dev/null, lest a connection get one of them and the messages with it. What nobody reads any
/// more is lost, and does not end or hold up the process.
void secure_standard_descriptors();

/// Sets the levels to log, of libwebsockets' own lines too, to what "-d" asks for.
void set_log_level(int argc, const char** argv);

/// Creates the service's System V shared-memory segment, unless it exists. `variant` is curlx.
void create_shared_memory(int variant);

/// Writes the machine's architecture to `out` of `size` bytes, without a line end: what "uname -m"
/// says, or "none" when it can't be run.
void read_architecture(char* out, std::size_t size);

/// Writes the operating system's name to hostname.txt in the working directory, unless something
/// other than a regular file has that name. Returns why it was not written; empty when it was.
std::string write_host_file();
