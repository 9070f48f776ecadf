#pragma once

#include <functional>
#include <string>

/// Calls `run`, and again whenever the file at `path` has been written or replaced and has come to
/// rest, until the user interrupts. A file that is missing or empty for a while is waited for.
/// Returns what the last run returned.
int watch(const std::string& path, const std::function<int()>& run);
