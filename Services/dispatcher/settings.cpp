#include "Services/dispatcher/settings.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "Services/dispatcher/ini_writer.h"
#include "Services/dispatcher/json_reply.h"
#include "Services/dispatcher/program_directory.h"
#include "Services/dispatcher/reachability.h"
#include "config/ini.h"
#include "util/json/failure_reply.h"
#include "util/json/json_object.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/format.h"
#include "util/text/gbk.h"
#include "util/text/messages.h"

namespace {

constexpr char kSection[] = "SERVER";
constexpr char kAddressKey[] = "SERVER_IP";
constexpr char kPortKey[] = "SERVER_PORT";

constexpr std::size_t kNewAddressSize = 40;
constexpr std::size_t kStoredAddressSize = 30;
constexpr std::size_t kStoredPortSize = 7;

void add(neb::CJsonObject& json, const char* key, const std::string& value) {
  jsonadd(&json, key, reinterpret_cast<const unsigned char*>(value.c_str()));
}

bool refuse(TextBuffer out, std::string_view reason) {
  return write_failure(out, clean_gbk(reason, kReasonSize - 1));
}

/// Forms the path of the server INI file; false when it does not fit.
bool settings_path(char (&path)[kProgramPathSize]) {
  return getfilepath() && copy_text(path, format_text("%s/quorvel.ini", curPath0));
}

/// Whether the address can be a value of the INI file. inet_addr accepts an address followed by
/// white space and anything else, so a line feed would bring further lines into the file, and
/// brackets would make the key's line a section header that hides the keys after it.
bool can_be_stored(std::string_view address) {
  const std::string line = std::string(kAddressKey).append("=").append(address);
  return address.size() < kNewAddressSize &&
         std::none_of(address.begin(), address.end(), is_control) && !is_section_header(line);
}

/// A stored value, cut at a whole character to what its field of `size` bytes takes.
std::string stored(CIni& ini, const char* key, std::size_t size) {
  return clean_gbk(ini.GetStr(kSection, key), size - 1);
}

}  // namespace

bool read_settings(TextBuffer out) {
  try {
    char path[kProgramPathSize];
    if (!settings_path(path)) return refuse(out, messages::kSettingsPathTooLong);
    CIni ini;
    if (ini.OpenFile(path, "r") == 2) {
      log_error("%s can't be read: %s\n", path, ini.failure().c_str());
      return refuse(out, format_text(messages::kCannotOpenSettings, path));
    }
    neb::CJsonObject reply(Charset::kGbk);
    add(reply, "result", "true");
    add(reply, "ip", stored(ini, kAddressKey, kStoredAddressSize));
    add(reply, "port", stored(ini, kPortKey, kStoredPortSize));
    write_reply(out, reply);
    return true;
  } catch (...) {
    return refuse(out, current_exception_text(messages::kException, messages::kCannotReadSettings));
  }
}

bool update_settings(const char* command, TextBuffer out) {
  const neb::CJsonObject json{std::string_view(command)};
  std::string ip;
  if (!json.Get("ip", ip) || !can_be_stored(ip)) return refuse(out, messages::kNoAddress);
  int port = 0;
  json.Get("port", port);
  if (port == 0) return refuse(out, messages::kNoPort);
  if (!take_check_turn()) return refuse(out, messages::kBusy);
  char reason[kReasonSize] = {};
  if (!store_server_address(ip.c_str(), port, reason)) return refuse(out, reason);
  neb::CJsonObject reply;
  add(reply, "result", "true");
  write_reply(out, reply);
  return true;
}

bool store_server_address(const char* ip, int port, TextBuffer errmsg) {
  if (!socket_conn(ip, port, reinterpret_cast<unsigned char*>(errmsg.data), errmsg.size))
    return false;
  char path[kProgramPathSize];
  if (!settings_path(path)) return fail_with(errmsg, messages::kSettingsPathTooLong);
  writeStringVlaue(kSection, kAddressKey, ip, path);
  writeIntValue(kSection, kPortKey, port, path);
  return true;
}
