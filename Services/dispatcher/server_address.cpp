#include "Services/dispatcher/server_address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "Services/dispatcher/ini_writer.h"
#include "Services/dispatcher/json_reply.h"
#include "Services/dispatcher/program_directory.h"
#include "Services/dispatcher/reachability.h"
#include "config/ini.h"
#include "config/known_keys.h"
#include "util/json/failure_reply.h"
#include "util/json/json_object.h"
#include "util/language/language.h"
#include "util/log/log.h"
#include "util/os/port.h"
#include "util/text/ascii.h"
#include "util/text/bytes.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/gbk.h"
#include "util/text/messages.h"
#include "util/text/number.h"

namespace {

constexpr char kSection[] = "SERVER";
constexpr char kAddressKey[] = "SERVER_IP";
constexpr char kPortKey[] = "SERVER_PORT";

constexpr std::size_t kNewAddressSize = 40;
constexpr std::size_t kStoredAddressSize = 30;
constexpr std::size_t kStoredPortSize = 7;

void add(neb::CJsonObject& json, const char* key, const std::string& value) {
  jsonadd(&json, key, as_bytes(value.c_str()));
}

bool refuse(TextBuffer out, GbkView reason) {
  return write_failure(out, Gbk(clean_gbk(reason.bytes(), kReasonSize - 1)));
}

/// Forms the path of the server INI file; false when it does not fit.
bool settings_path(char (&path)[kProgramPathSize]) {
  return getfilepath() && copy_text(path, format_text("%s/%s", curPath0, kServerIni));
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

/// Names what is wrong with a value: config would be told that it is stored, and getconfig gives
/// it.
void report_value(CIni& ini, const Utf8& path, const char* key, std::size_t size, bool is_good) {
  const std::vector<std::string> keys = ini.Keys(kSection);
  const std::string value = ini.GetStr(kSection, key);
  if (std::find(keys.begin(), keys.end(), key) == keys.end())
    log_error("%s has no line %s= under [%s]: an address that a page sets is not stored; add it\n",
              path.c_str(), key, kSection);
  else if (value.size() >= size)
    log_error("%s: [%s] %s is longer than %zu characters and is cut; shorten it\n", path.c_str(),
              kSection, key, size - 1);
  else if (!is_good)
    log_warning("%s: [%s] %s=%s is no %s; correct it\n", path.c_str(), kSection, key,
                shown(value).c_str(),
                translated(key == kPortKey ? translatable("port from 1 to 65535")
                                           : translatable("dotted IPv4 address")));
}

}  // namespace

void report_server_address_faults() {
  char path[kProgramPathSize];
  CIni ini;
  if (!settings_path(path)) return;
  if (ini.OpenFile(path, "r") != 0) {
    log_error("%s can't be read: %s\n", shown(path).c_str(), ini.failure().c_str());
    return;
  }
  report_lines(path, ini.lines(), {{kSection, kAddressKey, 0}, {kSection, kPortKey, 0}});
  in_addr address{};
  const std::string ip = ini.GetStr(kSection, kAddressKey);
  report_value(ini, shown(path), kAddressKey, kStoredAddressSize,
               inet_pton(AF_INET, ip.c_str(), &address) == 1);
  report_value(ini, shown(path), kPortKey, kStoredPortSize,
               whole_number(ini.GetStr(kSection, kPortKey), 1, kHighestPort).has_value());
}

bool read_server_address(TextBuffer out) {
  try {
    char path[kProgramPathSize];
    if (!settings_path(path)) return refuse(out, messages::kSettingsPathTooLong);
    CIni ini;
    if (ini.OpenFile(path, "r") == 2) {
      log_error("%s can't be read: %s\n", shown(path).c_str(), ini.failure().c_str());
      return refuse(out, format_gbk(messages::kCannotOpenSettings, gbk_of(path)));
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

bool update_server_address(const char* command, TextBuffer out) {
  const neb::CJsonObject json{std::string_view(command)};
  std::string ip;
  if (!json.Get("ip", ip) || !can_be_stored(ip)) return refuse(out, messages::kNoAddress);
  int port = 0;
  json.Get("port", port);
  if (port == 0) return refuse(out, messages::kNoPort);
  if (!take_check_turn()) return refuse(out, messages::kBusy);
  char reason[kReasonSize] = {};
  if (!store_server_address(ip.c_str(), port, reason)) return refuse(out, GbkView(reason));
  neb::CJsonObject reply;
  add(reply, "result", "true");
  write_reply(out, reply);
  return true;
}

bool store_server_address(const char* ip, int port, TextBuffer errmsg) {
  if (!socket_conn(ip, port, as_bytes(errmsg.data), errmsg.size)) return false;
  char path[kProgramPathSize];
  if (!settings_path(path)) return fail_with(errmsg, messages::kSettingsPathTooLong);
  writeStringVlaue(kSection, kAddressKey, ip, path);
  writeIntValue(kSection, kPortKey, port, path);
  return true;
}
