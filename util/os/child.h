#pragma once

#include <sys/types.h>

#include <string>

/// Sets the signals as every process has them that reader libraries are loaded into: SIGPIPE is
/// ignored and none is blocked, whatever the process was started with.
void settle_signals();

/// For a process that runs foreign code for the process `parent`: it dies with that one, has the
/// signals of settle_signals(), and leaves no core file when it crashes, which is to be expected of
/// it. Ends the process when the parent has ended already.
void settle_as_child(pid_t parent);

/// How a process ended, from waitpid's status: "crashed with SIGSEGV", or "ended the process with
/// exit status 3". A sentence's end whose subject is the foreign code.
std::string describe_end(int status);
