// Start-up in order, the service loop, and the globals that belong to them.

#include <libwebsockets.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Services/dispatcher/reachability.h"
#include "Services/dispatcher/settings.h"
#include "libs/lib_manager.h"
#include "server/answer.h"
#include "server/command_line.h"
#include "server/listening.h"
#include "server/page_files.h"
#include "server/pending_table.h"
#include "server/request_channel.h"
#include "server/service_settings.h"
#include "server/startup.h"
#include "server/tls.h"
#include "util/log/log.h"
#include "util/os/local_address.h"
#include "util/os/program_path.h"
#include "util/os/working_directory.h"
#include "util/text/conversion.h"

char xtjg[20];
volatile std::sig_atomic_t interrupted = 0;
LibManager libmanager;

/// Part of the start-up banner, which is for pages and scripts that know it: not the package's
/// version.
const char Webversion[] = "3.5.0.01";

namespace {

constexpr int kDefaultLogLevel = LLL_ERR | LLL_WARN | LLL_NOTICE | LLL_USER;
static_assert(static_cast<unsigned>(LogLevel::kUser) == LLL_USER, "levels are libwebsockets' bits");
constexpr int kFirstMarkedFree = 10;

/// TCP keep-alive: a peer that has vanished is noticed after kKeepAliveIdleS and as many probes.
constexpr int kKeepAliveIdleS = 60;
constexpr int kKeepAliveProbes = 4;
constexpr int kKeepAliveIntervalS = 15;

/// Upper bound of the time that a SIGINT goes unnoticed when it comes between the loop's look at
/// the flag and the library's wait.
constexpr lws_usec_t kFlagCheckUs = LWS_US_PER_SEC;

/// libwebsockets 4.1 spins for ever on a paused connection whose TLS layer still holds data, as
/// it does after a record of many small frames. A service buffer that takes a whole record (16 KiB
/// and its header) leaves nothing there.
constexpr unsigned int kServiceBufferSize = 16448;

struct ContextDestroyer {
  void operator()(lws_context* context) const { lws_context_destroy(context); }
};
using UniqueContext = std::unique_ptr<lws_context, ContextDestroyer>;

const lws_http_mount mount = []() noexcept {
  lws_http_mount files{};
  files.mountpoint = "/";
  files.mountpoint_len = 1;
  files.origin = kPageFolder;
  files.origin_protocol = LWSMPRO_FILE;
  files.def = "index.html";
  return files;
}();

void sigint_handler(int) { interrupted = 1; }

void set_log_level(int argc, const char** argv) {
  const char* level = lws_cmdline_option(argc, argv, "-d");
  const int mask =
      level != nullptr ? static_cast<int>(std::strtol(level, nullptr, 10)) : kDefaultLogLevel;
  lws_set_log_level(
      mask, [](int bit, const char* line) { log_component(static_cast<unsigned>(bit), line); });
  set_log_levels(static_cast<unsigned>(mask));
}

lws_context_creation_info context_settings(int argc, const char** argv, int port,
                                           RequestChannel& channel) {
  lws_context_creation_info info{};
  info.user = &channel;
  info.port = port;
  info.protocols = protocols;
  info.mounts = &mount;
  info.options = LWS_SERVER_OPTION_HTTP_HEADERS_SECURITY_BEST_PRACTICES_ENFORCE;
  // A browser would open its WebSocket as a stream of the page's HTTP/2 connection, which has no
  // descriptor of its own and no flow control.
  info.alpn = "http/1.1";
  info.pt_serv_buf_size = kServiceBufferSize;
  info.ka_time = kKeepAliveIdleS;
  info.ka_probes = kKeepAliveProbes;
  info.ka_interval = kKeepAliveIntervalS;
  if (lws_cmdline_option(argc, argv, "-s") != nullptr) {
    log_user("Server using TLS\n");
    use_tls(info);
  }
  if (lws_cmdline_option(argc, argv, "-h") != nullptr)
    info.options |= LWS_SERVER_OPTION_VHOST_UPG_STRICT_HOST_CHECK;
  return info;
}

/// The context with a virtual host for each place; null when libwebsockets makes none. A place that
/// can't be listened on shows later: libwebsockets goes on without it.
UniqueContext open_context(lws_context_creation_info info,
                           const std::vector<ListeningPlace>& places) {
  info.options |= LWS_SERVER_OPTION_EXPLICIT_VHOSTS;
  UniqueContext context(lws_create_context(&info));
  for (const ListeningPlace& place : places) {
    lws_context_creation_info host = info;
    host.iface = place.address;
    if (place.family == AF_INET) host.options |= LWS_SERVER_OPTION_DISABLE_IPV6;
    if (context && lws_create_vhost(context.get(), &host) == nullptr) context.reset();
  }
  return context;
}

/// The context, listening; null, with the reason in the log, when that can't be had.
UniqueContext create_context(const lws_context_creation_info& info, bool loopback_alone) {
  // libwebsockets would take port 0 for any, and goes on without a listening socket.
  std::string fault = info.port == 0 ? "there is no port to listen on, see above" : "";
  if (fault.empty() && info.ssl_cert_filepath != nullptr) fault = tls_fault();
  const auto places = listening_places(loopback_alone);
  UniqueContext context(fault.empty() ? open_context(info, places) : nullptr);
  const auto listens = [&](const auto& place) { return listens_on(place, info.port); };
  if (context && std::all_of(places.begin(), places.end(), listens)) return context;
  log_error("Server init failed\n");
  context.reset();
  if (fault.empty()) fault = listening_fault(places, info.port);
  log_error("%s\n", fault.c_str());
  return nullptr;
}

void log_listening_line(const ServiceSettings& settings) {
  char addresses[kAddressListSize] = "127.0.0.1;";
  if (!settings.access.loopback_alone) {
    addresses[0] = '\0';
    get_localip(addresses, sizeof addresses);
  }
  log_user("QUORVEL server is now listening on ip:%slocalhost port:%2d for protocols ws .\n",
           addresses, settings.port);
  log_user("Who may use the service: %s\n", settings.access.summary().c_str());
}

/// Wakes the service loop now and then, so that it looks at the interrupted flag, and the log says
/// what it left out.
struct FlagTimer {
  lws_sorted_usec_list_t entry{};
  lws_context* context;

  explicit FlagTimer(lws_context* served) : context(served) { arm(&entry); }
  ~FlagTimer() { lws_sul_cancel(&entry); }
  FlagTimer(const FlagTimer&) = delete;
  FlagTimer& operator=(const FlagTimer&) = delete;

  static void arm(lws_sorted_usec_list_t* entry) {
    auto* timer = lws_container_of(entry, FlagTimer, entry);
    flush_log();
    lws_sul_schedule(timer->context, 0, entry, arm, kFlagCheckUs);
  }
};

void serve(lws_context* context) {
  const FlagTimer timer(context);
  int result = 0;
  while (result >= 0 && interrupted == 0) {
    begin_check_pass();
    result = lws_service(context, 0);
  }
}

/// What happens before the launching process lets go of its terminal.
void prepare_process(int argc, const char** argv) {
  secure_standard_descriptors();
  create_shared_memory(getcurlx());
  for (int entry = 0; entry < kFirstMarkedFree; ++entry) data_rec[entry].sockfd = -1;
  read_architecture(xtjg, sizeof xtjg);
  const std::string host_file_fault = write_host_file();
  set_log_level(argc, argv);
  report_command_line(argc, argv);
  if (!host_file_fault.empty())
    log_warning("hostname.txt is not written: %s\n", host_file_fault.c_str());
}

ServiceSettings read_settings() {
  print("%s\n", require_working_directory().c_str());
  char path[kProgramPathSize];
  if (!getfilepath(path, kServiceIni))
    log_error("%s: its path would be longer than %zu bytes; install the program elsewhere\n",
              kServiceIni, sizeof path - 1);
  ServiceSettings settings = read_service_settings(path);
  report_settings_faults();
  return settings;
}

ServiceSettings load_libraries() {
  log_user("Starting Orvex WebSocket Server Version %s of Brennic\n", Webversion);
  if (!preload_conversion())
    log_error("the C library can't convert GBK to UTF-8: install its gconv modules\n");
  ServiceSettings settings = read_settings();
  char errtext[kErrorTextSize] = {};
  libmanager.init(std::move(settings.libraries), errtext, sizeof errtext);
  log_user("Load library ok:\n");
  return settings;
}

}  // namespace

int main(int argc, const char** argv) {
  prepare_process(argc, argv);
  if (daemon(1, 1) != 0) {
    log_error("create daemon failed...\n");
    return -1;
  }
  log_milestone("create daemon ok...\n");
  settle_in_working_directory();
  const ServiceSettings settings = load_libraries();
  std::signal(SIGINT, sigint_handler);

  log_user("Server Initializing \n");
  RequestChannel channel{libmanager, settings.access, {libmanager, {settings.access, xtjg}}};
  const lws_context_creation_info info = context_settings(argc, argv, settings.port, channel);
  UniqueContext context(create_context(info, settings.access.loopback_alone));
  if (!context) return 1;
  guard_page_files(context.get());
  if (!channel.watch_late_replies(context.get())) {
    log_error("Server init failed\n");
    log_error("no descriptor is left to watch the isolated libraries with; raise the limit\n");
    return 1;
  }
  log_user("Server started \n");
  log_listening_line(settings);
  log_user("Server RUNNING .\n");
  serve(context.get());
  context.reset();
  libmanager.end_isolated();
  return 0;
}
