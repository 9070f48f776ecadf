#pragma once

#include <string>

#include "bench/load/results.h"

/// The targets, each with what was reached, and the figures of each server, as two tables in
/// Markdown. Throws std::out_of_range when a figure is missing, other than those of the earlier
/// version.
std::string report(const Results& results);
