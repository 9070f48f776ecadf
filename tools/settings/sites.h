#pragma once

#include <cjson/cJSON.h>

#include <string>
#include <vector>

/// Adds to the object what the service makes of the text as the value of an originN: its "origin",
/// in the one spelling of all that are equal to it, or the "fault", which names the cure in the
/// user's language. Returns whether it is an origin. Throws std::bad_alloc alone, as all below.
bool add_site(cJSON* object, const char* text);

/// What the service makes of each text as the value of an originN, as one JSON object (UTF-8)
/// whose "sites" has one object a text. `all_good` tells whether there is no fault.
std::string sites_as_json(const std::vector<const char*>& texts, bool& all_good);
