#include "readers/pcsc/profile.h"

#include <algorithm>

namespace {

bool fits(const AtrPattern& pattern, std::string_view atr) {
  const std::size_t size = pattern.value.size();
  if (pattern.open ? atr.size() < size : atr.size() != size) return false;
  for (std::size_t at = 0; at < size; ++at)
    if ((atr[at] & pattern.mask[at]) != pattern.value[at]) return false;
  return true;
}

}  // namespace

bool Profile::fits_atr(std::string_view atr) const {
  return atrs.empty() || std::any_of(atrs.begin(), atrs.end(),
                                     [&](const AtrPattern& pattern) { return fits(pattern, atr); });
}

const CardFunction* Profile::find_function(std::string_view function) const {
  for (const CardFunction& candidate : functions)
    if (candidate.name == function) return &candidate;
  return nullptr;
}

std::vector<std::string> ProfileSet::function_names() const {
  std::vector<std::string> names;
  for (const Profile& profile : profiles)
    for (const CardFunction& function : profile.functions)
      if (std::find(names.begin(), names.end(), function.name) == names.end())
        names.push_back(function.name);
  return names;
}
