#pragma once

#include "util/os/program_path.h"

/// Directory of the program file without a trailing "/", as getfilepath() last found it.
extern char curPath0[kProgramPathSize];

/// Sets curPath0. False, with curPath0 empty, when the directory does not fit.
bool getfilepath();
