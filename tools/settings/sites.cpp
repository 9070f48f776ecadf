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

bool add_site(cJSON* object, const char* text) {
  const auto site = parse_site(text);
  add_text(object, site ? "origin" : "fault", site ? spelled(*site) : translated(kNoOrigin));
  return site.has_value();
}

std::string sites_as_json(const std::vector<const char*>& texts, bool& all_good) {
  const Json document = new_object();
  cJSON* sites = checked(cJSON_AddArrayToObject(document.get(), "sites"));
  all_good = true;
  for (const char* text : texts) {
    cJSON* object = new_object().release();
    cJSON_AddItemToArray(sites, object);
    all_good &= add_site(object, text);
  }
  return compact_json(document.get());
}
