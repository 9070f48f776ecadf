#pragma once

#include <set>
#include <string>

/// Why the installed service can't open the file at `path` (absolute), though this program can: its
/// unit hides the place from it, or its user may not read there. A part of a sentence; empty when
/// nothing stands in the way. Where the service's user does not exist, as on a maker's own machine,
/// it counts as one whom the file belongs to in no way.
std::string service_obstacle(const std::string& path);

/// The paths of all that the dynamic loader has loaded into this process by now.
std::set<std::string> loaded_files();
