#include "server/startup.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "util/log/log.h"
#include "util/os/working_directory.h"
#include "util/text/text_buffer.h"

int curlx = -1;

namespace {

constexpr useconds_t kSettleTimeUs = 10;
constexpr key_t kVariantSegmentKey = 95230001;
constexpr key_t kSegmentKey = 95240001;
constexpr std::size_t kSegmentSize = 4096;

struct PipeCloser {
  void operator()(std::FILE* pipe) const { pclose(pipe); }
};
using UniquePipe = std::unique_ptr<std::FILE, PipeCloser>;

}  // namespace

int getcurlx() {
  usleep(kSettleTimeUs);
  curlx = require_working_directory().find("quorvelkglserver") != std::string::npos ? 1 : 0;
  return curlx;
}

void settle_in_working_directory() {
  usleep(kSettleTimeUs);
  require_working_directory();
}

void secure_standard_descriptors() {
  // Each open takes the lowest closed descriptor; the one above 2 is given back.
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
  settle_log();
  // Reader libraries may print, too: whole lines, so that a file shows them at once.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  std::signal(SIGPIPE, SIG_IGN);
}

DescriptorReserve::DescriptorReserve() {
  constexpr rlim_t kLargestReserve = 64;
  if (getrlimit(RLIMIT_NOFILE, &before) != 0) return;
  rlimit lower = before;
  lower.rlim_cur -= std::min(before.rlim_cur / 4, kLargestReserve);
  setrlimit(RLIMIT_NOFILE, &lower);
}

DescriptorReserve::~DescriptorReserve() {
  if (before.rlim_cur > 0) setrlimit(RLIMIT_NOFILE, &before);
}

void create_shared_memory(int variant) {
  // Nothing of the service uses the segment, so it goes on without one.
  (void)shmget(variant == 1 ? kVariantSegmentKey : kSegmentKey, kSegmentSize, IPC_CREAT | 0666);
}

void read_architecture(char* out, std::size_t size) {
  const UniquePipe pipe(popen("uname -m", "r"));  // NOLINT(cert-env33-c): a fixed command
  if (!pipe) {
    copy_text({out, size}, "none");
    return;
  }
  if (std::fgets(out, static_cast<int>(size), pipe.get()) == nullptr) out[0] = '\0';
  out[std::strcspn(out, "\r\n")] = '\0';
}

void write_host_file() {
  // Closing the pipe waits until the file is written.
  // NOLINTNEXTLINE(cert-env33-c): a fixed command
  const UniquePipe pipe(popen("hostnamectl|grep System > ./hostname.txt", "r"));
}
