#pragma once

#include <cstddef>
#include <string>

/// What a process holds that a library can leave behind.
struct Resources {
  int descriptors;
  int threads;
  int processes;             ///< children that run, or that nobody has waited for
  std::size_t heap_bytes;    ///< allocated and not given back
  std::size_t mapped_bytes;  ///< address space
};

Resources measure_resources();

/// Three measurements with the same number of repetitions between each two.
struct Growth {
  Resources before;
  Resources halfway;
  Resources after;
};

/// What the repetitions leave behind, as a sentence part; empty when nothing. `half` is the number
/// of repetitions between two measurements. Memory counts when both halves leave some behind: a
/// cache that is filled once is no leak.
std::string describe_growth(const Growth& growth, int half);

/// Switches off malloc's per-thread cache, which counts as allocated what was freed, by starting
/// this program again with the C library so tuned. It then runs under its file's own path: started
/// through a link, it would look beside the link for the helper program. Comes first in main.
void restart_without_malloc_cache(char** argv);
