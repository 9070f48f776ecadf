#pragma once

#include <string>

/// Loads the library at `path` as the service does, and tells in one JSON object (UTF-8) whether
/// it can: "functions", a text as the library lists them, or "error", the reason.
std::string loading_as_json(const char* path);
