#pragma once

#include <cstdio>

#include "tools/libcheck/arguments.h"

// What a maker does with a library that is loaded once: calls it, records a session, replays one.
// Replies and comparisons go to `out`, everything else to standard error. They throw CannotLoad,
// SessionError and Interrupted. Each returns whether all went well.

/// Makes the given calls. False when a reply is no success.
bool show_calls(const Arguments& arguments, std::FILE* out);

/// Makes the given calls, or those that standard input names line by line, and writes each into the
/// session's file. A line is a request, or the bare name of a function. False when a line was no
/// request, or the library gave no reply to one.
bool record_session(const Arguments& arguments, std::FILE* out);

/// Makes the calls of a recorded session again. False when a reply differs.
bool replay_session(const Arguments& arguments, std::FILE* out);
