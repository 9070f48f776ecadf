#pragma once

#include "tools/libcheck/report.h"

/// Adds what an administrator should write into the service INI file about the library, going by
/// what has been found.
void advise_isolation(Report& report);
