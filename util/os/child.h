#pragma once

#include <sys/types.h>

#include <string>

/// For a process that runs foreign code for the process `parent`: it dies with that one, and leaves
/// no core file when it crashes, which is to be expected of it. Ends the process when the parent
/// has ended already.
void settle_as_child(pid_t parent);

/// How a process ended, from waitpid's status: "crashed with SIGSEGV", or "ended the process with
/// exit status 3". A sentence's end whose subject is the foreign code.
std::string describe_end(int status);
