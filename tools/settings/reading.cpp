#include "tools/settings/reading.h"

#include <unistd.h>

#include <algorithm>

#include "Services/dispatcher/server_address.h"
#include "access/access_settings.h"
#include "config/service_ini.h"
#include "server/command_line.h"
#include "server/service_settings.h"
#include "tools/settings/sites.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"
#include "util/log/log.h"
#include "util/os/program_path.h"
#include "util/text/conversion.h"

namespace {

/// While it lives, adds what the service would log to the object, as its "faults".
class Faults {
 public:
  explicit Faults(cJSON* object) {
    cJSON* faults = checked(cJSON_AddArrayToObject(object, "faults"));
    set_log_sink(
        [faults](char letter, const std::string& line) {
          if (letter != 'E' && letter != 'W') return;
          cJSON* fault = checked(cJSON_CreateObject());
          cJSON_AddItemToArray(faults, fault);
          add_text(fault, "level", letter == 'E' ? "error" : "warning");
          add_text(fault, "text", line);
        },
        translated);
  }
  ~Faults() { set_log_sink({}, nullptr); }
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;
};

/// Names a library whose file is there under the name in UTF-8 alone: the file lists it in GBK.
void report_charset(const ListedLibrary& listed) {
  const std::string path = shown(listed.path).bytes();
  if (path != listed.path && access(listed.path.c_str(), F_OK) != 0 &&
      access(path.c_str(), F_OK) == 0)
    log_error("%s: [%s] %s is in GBK, but the name of its file in UTF-8: write it in UTF-8\n",
              kServiceIni, kLibrarySection, listed.key.c_str());
}

void add_libraries(cJSON* object, const Listing& listing) {
  cJSON* libraries = checked(cJSON_AddArrayToObject(object, "libraries"));
  for (const ListedLibrary& listed : listing) {
    cJSON* library = checked(cJSON_CreateObject());
    cJSON_AddItemToArray(libraries, library);
    add_text(library, "key", listed.key);
    add_text(library, "path", shown(listed.path).bytes());
    if (!listed.failure.empty()) add_text(library, "failure", shown(listed.failure).bytes());
    report_charset(listed);
    if (listed.limit != kInProcess)
      checked(cJSON_AddNumberToObject(library, "isolatedSeconds",
                                      static_cast<double>(listed.limit.count())));
  }
}

void add_access(cJSON* object, const AccessRules& rules) {
  cJSON* access = checked(cJSON_AddObjectToObject(object, "access"));
  checked(cJSON_AddBoolToObject(access, "loopbackAlone", rules.loopback_alone));
  checked(cJSON_AddBoolToObject(access, "sitesLimited", rules.sites_limited));
  cJSON* sites = checked(cJSON_AddArrayToObject(access, "sites"));
  for (const AllowedSite& allowed : rules.sites)
    cJSON_AddItemToArray(sites, checked(cJSON_CreateString(shown(allowed.text).c_str())));
}

std::string path_of(const char* file) {
  char path[kProgramPathSize];
  return getfilepath(path, file) ? path : std::string(file);
}

void add_service_ini(cJSON* document) {
  cJSON* object = checked(cJSON_AddObjectToObject(document, "serviceIni"));
  const Faults faults(object);
  const std::string path = path_of(kServiceIni);
  add_text(object, "path", path);
  const ServiceSettings settings = read_service_settings(path);
  add_libraries(object, settings.libraries);
  checked(cJSON_AddNumberToObject(object, "port", settings.port));
  add_access(object, settings.access);
}

void add_server_ini(cJSON* document) {
  cJSON* object = checked(cJSON_AddObjectToObject(document, "serverIni"));
  const Faults faults(object);
  add_text(object, "path", path_of(kServerIni));
  report_server_address_faults();
}

void add_command_line(cJSON* document, const std::vector<const char*>& options) {
  cJSON* object = checked(cJSON_AddObjectToObject(document, "commandLine"));
  const Faults faults(object);
  report_command_line(static_cast<int>(options.size()), options.data());
}

}  // namespace

std::string access_as_json(const char* path) {
  const ServiceIni ini(path);
  const KnownKeys& known = access_keys();
  const auto origin = std::find_if(known.begin(), known.end(),
                                   [](const KnownKey& key) { return key.key == kOriginKey; });
  int header = 0;
  std::vector<const IniLine*> counting;  // of sections of one name, the last
  for (const IniLine& line : ini.lines()) {
    if (line.section != kAccessSection) continue;
    if (line.opens_section) counting.clear();
    if (line.opens_section) header = line.number;
    if (!line.key.empty()) counting.push_back(&line);
  }
  const Json document = new_object();
  checked(cJSON_AddNumberToObject(document.get(), "header", header));
  checked(cJSON_AddNumberToObject(document.get(), "mostSites", origin->numbers));
  cJSON* keys = checked(cJSON_AddArrayToObject(document.get(), "keys"));
  for (const IniLine* line : counting) {
    const std::string value = line->text.substr(line->key.size() + 1);
    cJSON* object = new_object().release();
    cJSON_AddItemToArray(keys, object);
    checked(cJSON_AddNumberToObject(object, "line", line->number));
    add_text(object, "key", shown(line->key).bytes());
    add_text(object, "value", shown(value).bytes());
    if (origin->is(line->key)) add_site(object, value.c_str());
  }
  return compact_json(document.get());
}

std::string settings_as_json(const std::vector<const char*>& options) {
  const Json document = new_object();
  add_service_ini(document.get());
  add_server_ini(document.get());
  add_command_line(document.get(), options);
  return compact_json(document.get());
}
