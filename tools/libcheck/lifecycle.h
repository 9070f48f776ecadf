#pragma once

#include <vector>

#include "tools/libcheck/request.h"
#include "tools/libcheck/subject.h"

/// Repeats calling, init with uninit, and loading with unloading, and compares what the process
/// holds before and after; watches what each call changes in the process; then ends a process
/// without uninit, as the service does. `answered` are requests that the library has answered; the
/// first of them is the one to repeat.
void check_lifecycle(Subject& subject, const std::vector<Request>& answered);
