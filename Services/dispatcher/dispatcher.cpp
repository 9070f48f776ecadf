#include "Services/dispatcher/dispatcher.h"

#include <chrono>
#include <string>

#include "Services/dispatcher/json_reply.h"
#include "Services/dispatcher/status.h"
#include "access/access_rules.h"
#include "libs/function_list.h"
#include "libs/lib_manager.h"
#include "util/json/json_object.h"
#include "util/text/bytes.h"
#include "util/text/messages.h"

namespace {

/// The one function of the service's own whose reply is larger than others, and UTF-8.
constexpr std::string_view kStatusFunction = "quorvel.status";

const auto kStart = std::chrono::steady_clock::now();

std::chrono::seconds uptime() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                          kStart);
}

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): clearing 200 KiB would cost a request
// dear
Jdispatcher::Jdispatcher(LibManager* registry, std::string_view text)
    : mgr(registry), request_fits(copy_text(request, text)) {
  if (!request_fits) request[0] = '\0';
  command[0] = fid[0] = '\0';
}

Outcome Jdispatcher::answer(const Surroundings& surroundings, const FunctionNames* allowed,
                            Ticket ticket, TextBuffer reply) {
  Deferral later{ticket};
  if (init(reply.data, surroundings.platform, reply.size)) {
    if (allowed != nullptr && !allowed->contains(fid)) {
      refuse(reply, messages::kNotAllowed);
    } else if (fid == kStatusFunction) {
      return Utf8(status_reply(mgr->status(), surroundings.access, uptime()));
    } else {
      dispatch(reply.data, reply.size, &later);
    }
  }
  if (later.taken) return ticket;
  return GbkView(reply.data);
}

bool Jdispatcher::init(char* out, const char* platform, std::size_t size) {
  if (!request_fits) return write_failure({out, size}, messages::kMessageTooLong);
  neb::CJsonObject json{std::string_view(request)};
  std::string name;
  const GbkView refusal = make_command(json, platform, name);
  if (!refusal.empty()) return write_failure({out, size}, refusal);
  return copy_text(command, json.ToString()) && copy_text(fid, name);
}

bool Jdispatcher::dispatch(char* out, std::size_t size, Deferral* later) {
  const OwnFunction own = own_function(fid);
  return own != nullptr ? (this->*own)({out, size}) : forward({out, size}, later);
}

Jdispatcher::OwnFunction Jdispatcher::own_function(std::string_view name) {
  if (name == "config") return &Jdispatcher::config;
  if (name == "getconfig") return &Jdispatcher::getconfig;
  return is_reserved_name(name) ? &Jdispatcher::refuse_reserved : nullptr;
}

bool Jdispatcher::is_own_function(std::string_view name) { return own_function(name) != nullptr; }

bool Jdispatcher::forward(TextBuffer out, Deferral* later) {
  const int result =
      mgr->call_cmd(as_bytes(fid), as_bytes(command), as_bytes(out.data), out.size, later);
  if (later == nullptr || !later->taken) complete_fid(out, Utf8View(fid));
  return result != 0;
}

bool Jdispatcher::refuse(TextBuffer out, GbkView reason) {
  write_failure(out, reason);
  complete_fid(out, Utf8View(fid));
  return false;
}

bool Jdispatcher::refuse_reserved(TextBuffer out) { return refuse(out, messages::kNotSupported); }

bool Jdispatcher::config(TextBuffer out) { return update_server_address(command, out); }

bool Jdispatcher::getconfig(TextBuffer out) { return read_server_address(out); }

bool Jdispatcher::setini(const char* ip, int port, char* errmsg, std::size_t size) {
  return store_server_address(ip, port, {errmsg, size});
}
