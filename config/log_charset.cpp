#include "config/log_charset.h"

#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"

namespace {

constexpr char kSection[] = "LOG";
constexpr char kKey[] = "charset";

}  // namespace

const KnownKeys& log_charset_keys() {
  static const KnownKeys keys = {{kSection, kKey, 0}};
  return keys;
}

void take_log_charset(const ServiceIni& ini) {
  const std::string value = ascii_lower(ini.value(kSection, kKey));
  set_log_charset_utf8(value == "utf-8");
  if (!value.empty() && value != "utf-8" && value != "gbk")
    log_error("%s: [LOG] charset=%s is not known: write utf-8 or gbk, which is the default\n",
              shown(ini.file()).c_str(), shown(value).c_str());
}
