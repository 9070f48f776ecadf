#include "tools/settings/sites.h"

#include "access/access_settings.h"
#include "access/origin.h"
#include "util/json/cjson_ptr.h"
#include "util/language/language.h"

namespace {

std::string spelled(const Site& site) {
  const auto& [scheme, place] = site.origin;
  const bool by_default = place.port == default_port(scheme);
  return scheme + "://" + (site.below ? "*." : "") + place.host +
         (by_default ? "" : ":" + std::to_string(place.port));
}

}  // namespace

std::string sites_as_json(const std::vector<const char*>& texts, bool& all_good) {
  const Json document = new_object();
  cJSON* sites = checked(cJSON_AddArrayToObject(document.get(), "sites"));
  const std::string fault = translated(kNoOrigin);
  all_good = true;
  for (const char* text : texts) {
    cJSON* object = new_object().release();
    cJSON_AddItemToArray(sites, object);
    const auto site = parse_site(text);
    add_text(object, site ? "origin" : "fault", site ? spelled(*site) : fault);
    all_good = all_good && site.has_value();
  }
  return compact_json(document.get());
}
