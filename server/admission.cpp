#include "server/admission.h"

#include <libwebsockets.h>

#include <optional>
#include <string>

#include "server/refusal_log.h"
#include "util/os/local_address.h"
#include "util/text/ascii.h"

namespace {

constexpr std::size_t kPeerAddressSize = 128;

/// The header's text, "" when it is empty; nothing without the header. The texts of one that occurs
/// twice come with a comma between them, and so name nobody.
std::optional<std::string> header(lws* wsi, lws_token_indexes token) {
  const int size = lws_hdr_total_length(wsi, token);
  char none = '\0';
  if (size <= 0 && lws_hdr_copy_fragment(wsi, &none, sizeof none, token, 0) < 0) return {};
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  const int length = lws_hdr_copy(wsi, text.data(), static_cast<int>(text.size()), token);
  text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  return text;
}

Caller caller_of(lws* wsi) {
  return {header(wsi, WSI_TOKEN_HOST), header(wsi, WSI_TOKEN_ORIGIN), lws_is_ssl(wsi) != 0,
          peer_is_on_loopback(lws_get_socket_fd(wsi))};
}

void log_refused_peer(lws* wsi, const char* why) {
  char peer[kPeerAddressSize] = {};
  lws_get_peer_simple(wsi, peer, sizeof peer);
  log_refusal("a program on", peer, why);
}

/// Refuses a request for the name in one of its headers, or for want of that header.
bool refuse(lws* wsi, const std::optional<std::string>& name, const char* whose, const char* why,
            const char* why_without) {
  if (name)
    log_refusal(whose, *name, why);
  else
    log_refused_peer(wsi, why_without);
  lws_return_http_status(wsi, HTTP_STATUS_FORBIDDEN, nullptr);
  return false;
}

bool refuse_host(lws* wsi, const Caller& caller) {
  return refuse(wsi, caller.host, "a request for the host",
                "no hostN under [ACCESS] in quorvel_service.ini names it",
                "its request has no Host, which only programs on this machine may omit");
}

bool refuse_origin(lws* wsi, const Caller& caller) {
  return refuse(wsi, caller.origin, "a page of",
                "no originN under [ACCESS] in quorvel_service.ini names its site",
                "without an Origin only programs on this machine are served");
}

}  // namespace

bool admit_request(lws* wsi, const AccessRules& rules) {
  if (!rules.limited) return true;
  const Caller caller = caller_of(wsi);
  return rules.may_address(caller) || refuse_host(wsi, caller);
}

bool admit_upgrade(lws* wsi, const AccessRules& rules, const char* protocol) {
  if (!rules.limited || ascii_lower(protocol) != "websocket") return true;
  const Caller caller = caller_of(wsi);
  if (!rules.may_address(caller)) return refuse_host(wsi, caller);
  return rules.rights_of(caller).admitted || refuse_origin(wsi, caller);
}

Rights connection_rights(lws* wsi, const AccessRules& rules) {
  if (!rules.limited) return {true};
  const Caller caller = caller_of(wsi);
  return rules.may_address(caller) ? rules.rights_of(caller) : Rights{};
}
