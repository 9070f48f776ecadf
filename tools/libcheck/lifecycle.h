#pragma once

#include "tools/libcheck/request.h"
#include "tools/libcheck/subject.h"

/// Repeats calling, init with uninit, and loading with unloading, and compares what the process
/// holds before and after; then ends a process without uninit, as the service does. `sample` is a
/// request that the library has answered.
void check_lifecycle(Subject& subject, const Request& sample);
