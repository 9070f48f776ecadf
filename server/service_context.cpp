#include "server/service_context.h"

#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <vector>

#include "server/listening.h"
#include "server/page_files.h"
#include "server/tls.h"
#include "util/log/log.h"

namespace {

/// TCP keep-alive: a peer that has vanished is noticed after kKeepAliveIdleS and as many probes.
constexpr int kKeepAliveIdleS = 60;
constexpr int kKeepAliveProbes = 4;
constexpr int kKeepAliveIntervalS = 15;

/// libwebsockets 4.1 spins for ever on a paused connection whose TLS layer still holds data, as
/// it does after a record of many small frames. A service buffer that takes a whole record (16 KiB
/// and its header) leaves nothing there.
constexpr unsigned int kServiceBufferSize = 16448;

const lws_http_mount mount = []() noexcept {
  lws_http_mount files{};
  files.mountpoint = "/";
  files.mountpoint_len = 1;
  files.origin = kPageFolder;
  files.origin_protocol = LWSMPRO_FILE;
  files.def = "index.html";
  return files;
}();

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

}  // namespace

UniqueContext create_context(int argc, const char** argv, int port, bool loopback_alone,
                             RequestChannel& channel) {
  const lws_context_creation_info info = context_settings(argc, argv, port, channel);
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
