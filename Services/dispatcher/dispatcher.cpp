#include "Services/dispatcher/dispatcher.h"

#include <chrono>
#include <string>

#include "Services/dispatcher/json_reply.h"
#include "Services/dispatcher/status.h"
#include "libs/function_list.h"
#include "libs/lib_manager.h"
#include "util/json/json_object.h"
#include "util/text/messages.h"

namespace {

const auto kStart = std::chrono::steady_clock::now();

const unsigned char* bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}

}  // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): clearing 200 KiB would cost a request
// dear
Jdispatcher::Jdispatcher(LibManager* registry, std::string_view text)
    : mgr(registry), request_fits(copy_text(request, text)) {
  if (!request_fits) request[0] = '\0';
  command[0] = fid[0] = '\0';
}

bool Jdispatcher::init(char* out, const char* platform, std::size_t size) {
  if (!request_fits) return write_failure({out, size}, messages::kMessageTooLong);
  neb::CJsonObject json{std::string_view(request)};
  std::string name;
  if (const char* refusal = make_command(json, platform, name))
    return write_failure({out, size}, refusal);
  own = own_function(name);
  return copy_text(command, json.ToString()) && copy_text(fid, name);
}

bool Jdispatcher::dispatch_long(const AccessRules& access, TextBuffer out) {
  if (own == nullptr || own->answer != nullptr) return false;
  const auto uptime = std::chrono::steady_clock::now() - kStart;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(uptime);
  return copy_text(out, status_reply(mgr->status(), access, seconds));
}

bool Jdispatcher::dispatch(char* out, std::size_t size) {
  if (own == nullptr) return forward({out, size});
  return own->answer == nullptr ? refuse({out, size}) : (this->*own->answer)({out, size});
}

Library::Later Jdispatcher::dispatch_later(Ticket ticket, std::size_t size) {
  if (own != nullptr) return Library::Later::kNever;
  return mgr->call_later(ticket, fid, command, size);
}

const Jdispatcher::Own* Jdispatcher::own_function(std::string_view name) {
  static constexpr Own kOwnFunctions[] = {{"config", &Jdispatcher::config},
                                          {"getconfig", &Jdispatcher::getconfig},
                                          {"quorvel.status", nullptr}};
  static constexpr Own kReserved = {kReservedPrefix, &Jdispatcher::refuse};
  for (const Own& function : kOwnFunctions)
    if (function.name == name) return &function;
  return is_reserved_name(name) ? &kReserved : nullptr;
}

bool Jdispatcher::is_own_function(std::string_view name) { return own_function(name) != nullptr; }

bool Jdispatcher::forward(TextBuffer out) {
  const int result = mgr->call_cmd(bytes(fid), bytes(command),
                                   reinterpret_cast<unsigned char*>(out.data), out.size);
  complete_fid(out, fid);
  return result != 0;
}

bool Jdispatcher::refuse(TextBuffer out) {
  write_failure(out, messages::kNotSupported);
  complete_fid(out, fid);
  return false;
}

bool Jdispatcher::config(TextBuffer out) { return update_settings(command, out); }

bool Jdispatcher::getconfig(TextBuffer out) { return read_settings(out); }

bool Jdispatcher::setini(const char* ip, int port, char* errmsg, std::size_t size) {
  return store_server_address(ip, port, {errmsg, size});
}
