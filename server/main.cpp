// Start-up in order, the service loop, and the globals that belong to them.

#include <unistd.h>

#include <csignal>
#include <string>
#include <utility>

#include "Services/dispatcher/server_address.h"
#include "libs/lib_manager.h"
#include "server/command_line.h"
#include "server/page_files.h"
#include "server/pending_table.h"
#include "server/request_channel.h"
#include "server/service_context.h"
#include "server/service_loop.h"
#include "server/service_settings.h"
#include "server/startup.h"
#include "util/log/log.h"
#include "util/os/local_address.h"
#include "util/os/working_directory.h"
#include "util/text/conversion.h"

char xtjg[20];
volatile std::sig_atomic_t interrupted = 0;
LibManager libmanager;

/// Part of the start-up banner, which is for pages and scripts that know it: not the package's
/// version.
const char Webversion[] = "3.5.0.01";

namespace {

constexpr int kFirstMarkedFree = 10;

void sigint_handler(int) { interrupted = 1; }

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

ServiceSettings load_libraries() {
  log_user("Starting Orvex WebSocket Server Version %s of Brennic\n", Webversion);
  if (!preload_conversion())
    log_error("the C library can't convert GBK to UTF-8: install its gconv modules\n");
  print("%s\n", shown(require_working_directory()).c_str());
  ServiceSettings settings = read_service_settings();
  report_server_address_faults();
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
  UniqueContext context =
      create_context(argc, argv, settings.port, settings.access.loopback_alone, channel);
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
  serve(context.get(), channel, interrupted);
  context.reset();
  libmanager.end_isolated();
  return 0;
}
