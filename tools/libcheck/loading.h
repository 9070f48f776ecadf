#pragma once

#include <string>
#include <vector>

#include "tools/libcheck/function_names.h"
#include "tools/libcheck/subject.h"

/// How far loading got.
enum class Loaded {
  kRefused,  // the dynamic loader refuses the file: there is nothing to check
  kBroken,   // it breaks the contract before it could serve a request
  kReady
};

/// Loads the library as the service does, step by step: file, entry points, function list, init,
/// and then the service's own loader. `list` is filled as far as the library gives one.
Loaded check_loading(Subject& subject, FunctionList& list);

/// Compares the function list with that of each library in `others`.
void check_overlaps(Subject& subject, const FunctionList& list,
                    const std::vector<std::string>& others);
