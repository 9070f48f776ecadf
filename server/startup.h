#pragma once

#include <sys/resource.h>

#include <cstddef>

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

/// Lowers the process's limit of descriptors while it lives. libwebsockets takes the limit at the
/// creation of its context for its own, and drops connections beyond; what lies above stays for the
/// reader libraries and the service's files. Without that, accepting would fail for want of a
/// descriptor, and libwebsockets would try again without a pause.
class DescriptorReserve {
 public:
  DescriptorReserve();
  ~DescriptorReserve();
  DescriptorReserve(const DescriptorReserve&) = delete;
  DescriptorReserve& operator=(const DescriptorReserve&) = delete;

 private:
  rlimit before{};
};

/// Creates the service's System V shared-memory segment, unless it exists. `variant` is curlx.
void create_shared_memory(int variant);

/// Writes the machine's architecture to `out` of `size` bytes, without a line end: what "uname -m"
/// says, or "none" when it can't be run.
void read_architecture(char* out, std::size_t size);

/// Writes the operating system's name to hostname.txt in the working directory.
void write_host_file();
