#pragma once

#include <filesystem>

#include "bench/load/results.h"

/// Prints the figures as tables on standard output.
void print_tables(const Results& results);

/// Prints each target with the figure reached on standard output.
void print_targets(const Results& results);

/// Writes all medians: a line for each with series, x, server, metric and value, parted by tabs.
/// Throws std::runtime_error.
void write_figures(const Results& results, const std::filesystem::path& path);
