// The dispatcher's own functions: the back-end server's address in quorvel.ini beside the program.

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "Services/dispatcher/dispatcher.h"
#include "Services/dispatcher/ini_writer.h"
#include "Services/dispatcher/program_directory.h"
#include "Services/dispatcher/reachability.h"
#include "config/ini.h"
#include "util/gbk.h"
#include "util/json_object.h"
#include "util/messages.h"

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

bool reply_failure(char* out, std::size_t size, std::string_view reason) {
  neb::CJsonObject reply;
  add(reply, "result", "false");
  add(reply, "errmsg", clean_gbk(reason, Jdispatcher::kReasonSize - 1));
  write_reply(out, size, reply);
  return false;
}

/// Forms the path of the server INI file; false when it does not fit.
bool settings_path(char (&path)[kProgramPathSize]) {
  return getfilepath() && copy_text(path, sizeof path, format_text("%s/quorvel.ini", curPath0));
}

/// Whether the address can be a value of the INI file. inet_addr accepts an address followed by
/// white space and anything else, so a line feed would bring further lines into the file, and
/// brackets would make the key's line a section header that hides the keys after it.
bool can_be_stored(std::string_view address) {
  const bool has_control = std::any_of(address.begin(), address.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
  const std::string line = std::string(kAddressKey).append("=").append(address);
  return address.size() < kNewAddressSize && !has_control && !is_section_header(line);
}

/// A stored value, cut at a whole character to what its field of `size` bytes takes.
std::string stored(CIni& ini, const char* key, std::size_t size) {
  return clean_gbk(ini.GetStr(kSection, key), size - 1);
}

}  // namespace

bool Jdispatcher::read_settings(char* out, std::size_t size) const {
  try {
    char path[kProgramPathSize];
    if (!settings_path(path)) return reply_failure(out, size, messages::kSettingsPathTooLong);
    CIni ini;
    if (ini.OpenFile(path, "r") == 2)
      return reply_failure(out, size, format_text(messages::kCannotOpenSettings, path));
    neb::CJsonObject reply;
    add(reply, "result", "true");
    add(reply, "ip", stored(ini, kAddressKey, kStoredAddressSize));
    add(reply, "port", stored(ini, kPortKey, kStoredPortSize));
    write_reply(out, size, reply);
    return true;
  } catch (const std::exception& error) {
    return reply_failure(out, size, exception_text(messages::kException, &error));
  } catch (...) {
    return reply_failure(out, size, messages::kCannotReadSettings);
  }
}

bool Jdispatcher::update_settings(char* out, std::size_t size) {
  const neb::CJsonObject json(command);
  std::string ip;
  if (!json.Get("ip", ip) || !can_be_stored(ip))
    return reply_failure(out, size, messages::kNoAddress);
  int port = 0;
  json.Get("port", port);
  if (port == 0) return reply_failure(out, size, messages::kNoPort);
  char reason[kReasonSize] = {};
  if (!setini(ip.c_str(), port, reason)) return reply_failure(out, size, reason);
  neb::CJsonObject reply;
  add(reply, "result", "true");
  write_reply(out, size, reply);
  return true;
}

bool Jdispatcher::setini(const char* ip, int port, char* errmsg, std::size_t size) {
  if (!socket_conn(ip, port, reinterpret_cast<unsigned char*>(errmsg), size)) return false;
  char path[kProgramPathSize];
  if (!settings_path(path)) return fail_with(errmsg, size, messages::kSettingsPathTooLong);
  writeStringVlaue(kSection, kAddressKey, ip, path);
  writeIntValue(kSection, kPortKey, port, path);
  return true;
}
