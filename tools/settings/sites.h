#pragma once

#include <string>
#include <vector>

/// What the service makes of each text as the value of an originN, as one JSON object (UTF-8)
/// whose "sites" has one object a text: its "origin", in the one spelling of all that are equal to
/// it, or the "fault", which names the cure in the user's language. `all_good` tells whether there
/// is no fault. Throws std::bad_alloc alone.
std::string sites_as_json(const std::vector<const char*>& texts, bool& all_good);
