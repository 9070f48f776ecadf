#include "server/service_settings.h"

#include "access/access_settings.h"
#include "config/log_charset.h"
#include "config/port_setting.h"
#include "config/service_ini.h"
#include "util/log/log.h"
#include "util/os/program_path.h"

KnownKeys service_keys() {
  return together({listing_keys(), port_keys(), log_charset_keys(), access_keys()});
}

ServiceSettings read_service_settings() {
  char path[kProgramPathSize];
  if (!getfilepath(path, kServiceIni))
    log_error("%s: its path would be longer than %zu bytes; install the program elsewhere\n",
              kServiceIni, sizeof path - 1);
  return read_service_settings(path);
}

ServiceSettings read_service_settings(const std::string& path) {
  const ServiceIni ini(path);
  take_log_charset(ini);
  ini.report(service_keys());
  const int port = read_port(ini);
  return {port, read_access(ini, port), read_listing(ini)};
}
