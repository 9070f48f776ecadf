#include "libs/lib_manager.h"

#include <libwebsockets.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>

#include "config/ini.h"
#include "libs/funlib.h"
#include "util/ascii.h"
#include "util/messages.h"
#include "util/program_path.h"
#include "util/working_directory.h"

namespace {

constexpr char kServiceIni[] = "quorvel_service.ini";
constexpr char kLibrarySection[] = "REGISTER";
constexpr char kServerSection[] = "SERVER";
constexpr char kPortKey[] = "localport";

constexpr int kDefaultPort = 47392;
constexpr int kMaxLibraries = 20;
constexpr int kHighestPort = 65535;
constexpr std::size_t kMaxPathLength = 199;  // bytes, of a listed value and of its full path
constexpr std::size_t kShortestPath = 6;
constexpr std::size_t kMaxPortLength = 9;

/// Whether the value is within its limit; says in the log what to do when it is not.
bool within_limit(const char* section, const char* key, std::string_view value, std::size_t limit) {
  if (value.size() <= limit) return true;
  lwsl_err("%s: [%s] %s is longer than %zu characters and was skipped; shorten it\n", kServiceIni,
           section, key, limit);
  return false;
}

/// Runs `action`; an exception becomes a failure text and the result false.
template <typename Action>
bool reporting_exceptions(char* errtext, std::size_t size, Action action) {
  try {
    return action();
  } catch (const std::exception& error) {
    write_failure(errtext, size, exception_text(messages::kException, &error));
  } catch (...) {
    write_failure(errtext, size, exception_text(messages::kException, nullptr));
  }
  return false;
}

}  // namespace

LibManager::LibManager() noexcept : port(kDefaultPort) {}

LibManager::~LibManager() {
  // Reachable to the last, so that a leak checker sees that this is meant.
  // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): nothing is left to lose at this point
  static auto* const left_loaded = new LibraryTable;
  left_loaded->merge(libs);
}

bool LibManager::init(char* errtext, std::size_t size) {
  std::printf("%s\n", require_working_directory().c_str());
  CIni ini;
  char path[kProgramPathSize];
  if (!getfilepath(path, kServiceIni)) {
    lwsl_err("%s: its path would be longer than %zu bytes; install the program elsewhere\n",
             kServiceIni, sizeof path - 1);
  } else if (ini.OpenFile(path, "r") != 0) {
    lwsl_err(
        "%s can't be read: no reader library is loaded and no port is set; put the file there\n",
        path);
  }
  load_listed_libraries(ini, errtext, size);
  read_port(ini);
  return true;
}

void LibManager::load_listed_libraries(CIni& ini, char* errtext, std::size_t size) {
  for (int i = 1; i <= kMaxLibraries; ++i) {
    const std::string key = "lib" + std::to_string(i);
    const std::string value = ini.GetStr(kLibrarySection, key.c_str());
    if (!within_limit(kLibrarySection, key.c_str(), value, kMaxPathLength)) continue;
    if (value.find("so") == std::string::npos) continue;
    char path[kMaxPathLength + 1];
    if (!getfilepath(path, value.c_str(), sizeof path)) {
      lwsl_err("%s: [%s] %s: its full path is longer than %zu characters and was skipped\n",
               kServiceIni, kLibrarySection, key.c_str(), kMaxPathLength);
      continue;
    }
    if (std::strlen(path) < kShortestPath) continue;
    lwsl_user("loading begin =%s\n", value.c_str());
    if (addlib(path, errtext, size)) continue;
    std::printf("\n?error  = %s?\n", errtext);
    lwsl_err("%s\n", errtext);
  }
}

void LibManager::read_port(CIni& ini) {
  const std::string value = ini.GetStr(kServerSection, kPortKey);
  port = 0;
  if (!within_limit(kServerSection, kPortKey, value, kMaxPortLength)) return;
  port = static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
  if (port <= 0 || port > kHighestPort)
    lwsl_err("%s: [%s] %s=%s is no TCP port; set it to one from 1 to %d, usually %d\n", kServiceIni,
             kServerSection, kPortKey, value.c_str(), kHighestPort, kDefaultPort);
}

bool LibManager::addlib(const char* path, char* errtext, std::size_t size) {
  return reporting_exceptions(errtext, size, [&] { return load(path, errtext, size); });
}

bool LibManager::load(const char* path, char* errtext, std::size_t size) {
  std::printf("addlib ======%s \n", path);
  const auto registered = libs.find(path);
  if (registered != libs.end()) {
    std::printf("finded ======%s %s \n", path, registered->first.c_str());
    return fail_with(errtext, size, format_text("%s loaded! \n", path));
  }
  lwsl_user("loading %s \n", path);
  auto library = std::make_unique<Funlib>(path);
  char reason[kReplySize] = {};
  if (!library->init(reason, sizeof reason)) {
    write_failure(errtext, size, format_text(messages::kInitFailed, path, reason));
    return false;
  }
  libs.emplace(path, std::move(library));
  return true;
}

bool LibManager::reinit(char* errtext, std::size_t size) {
  return reporting_exceptions(errtext, size, [&] {
    libs.clear();
    return init(errtext, size);
  });
}

bool LibManager::dellib(const char* path) {
  const auto registered = libs.find(path);
  if (registered != libs.end()) libs.erase(registered);
  return true;
}

int LibManager::call_cmd(const unsigned char* fid, const unsigned char* command,
                         unsigned char* reply, std::size_t reply_size) {
  if (reply == nullptr) return 0;
  if (fid != nullptr && command != nullptr) {
    std::string name = reinterpret_cast<const char*>(fid);
    std::transform(name.begin(), name.end(), name.begin(), ascii_lower);
    for (const auto& [path, library] : libs) {
      if (std::strstr(library->functions(), name.c_str()) == nullptr) continue;
      const auto* lowered = reinterpret_cast<const unsigned char*>(name.c_str());
      return library->call_cmd(lowered, command, reply, reply_size);
    }
  }
  write_failure(reinterpret_cast<char*>(reply), reply_size, messages::kNotSupported);
  return 0;
}
