#include "server/startup.h"

#include <fcntl.h>
#include <libwebsockets.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "util/log/log.h"
#include "util/os/child.h"
#include "util/os/regular_file.h"
#include "util/os/working_directory.h"
#include "util/text/text_buffer.h"

int curlx = -1;

namespace {

constexpr useconds_t kSettleTimeUs = 10;
constexpr key_t kVariantSegmentKey = 95230001;
constexpr key_t kSegmentKey = 95240001;
constexpr std::size_t kSegmentSize = 4096;
constexpr char kHostFile[] = "hostname.txt";

constexpr int kDefaultLogLevel = LLL_ERR | LLL_WARN | LLL_NOTICE | LLL_USER;
static_assert(static_cast<unsigned>(LogLevel::kUser) == LLL_USER, "levels are libwebsockets' bits");

// Of what is run below, error messages go nowhere: they would hold up the start where nobody reads
// the service's output.

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
  settle_signals();
}

void set_log_level(int argc, const char** argv) {
  const char* level = lws_cmdline_option(argc, argv, "-d");
  const int mask =
      level != nullptr ? static_cast<int>(std::strtol(level, nullptr, 10)) : kDefaultLogLevel;
  lws_set_log_level(
      mask, [](int bit, const char* line) { log_component(static_cast<unsigned>(bit), line); });
  set_log_levels(static_cast<unsigned>(mask));
}

void create_shared_memory(int variant) {
  // Nothing of the service uses the segment, so it goes on without one.
  (void)shmget(variant == 1 ? kVariantSegmentKey : kSegmentKey, kSegmentSize, IPC_CREAT | 0666);
}

void read_architecture(char* out, std::size_t size) {
  const UniquePipe pipe(
      popen("uname -m 2>/dev/null", "r"));  // NOLINT(cert-env33-c): a fixed command
  if (!pipe) {
    copy_text({out, size}, "none");
    return;
  }
  if (std::fgets(out, static_cast<int>(size), pipe.get()) == nullptr) out[0] = '\0';
  out[std::strcspn(out, "\r\n")] = '\0';
}

std::string write_host_file() {
  std::string reason;
  const UniqueFd file = open_regular(kHostFile, O_WRONLY | O_CREAT | O_NOFOLLOW, reason);
  if (file.get() < 0) return reason;
  struct stat status {};
  if (fstat(file.get(), &status) != 0 || status.st_nlink > 1) return "it has a second name";
  // NOLINTNEXTLINE(cert-env33-c): a fixed command
  const UniquePipe pipe(popen("hostnamectl 2>/dev/null|grep System", "r"));
  if (!pipe) return std::strerror(errno);
  std::string text;
  char piece[256];
  while (std::fgets(piece, sizeof piece, pipe.get()) != nullptr) text += piece;
  if (ftruncate(file.get(), 0) != 0 ||
      write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    return std::strerror(errno);
  return {};
}
