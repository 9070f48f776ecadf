#pragma once

#include <string>

#include "util/handle/unique_fd.h"
#include "util/handle/unique_file.h"

// Opening files by name where others may have put something else under that name: a pipe would hold
// up the service until somebody opened its other end, and a link would let it write elsewhere.

/// Opens a regular file with the flags of open(2); O_NOFOLLOW refuses a link, O_CREAT makes the
/// file with mode 0666 less the umask. On failure the descriptor is negative and `reason` says why.
UniqueFd open_regular(const char* path, int flags, std::string& reason);

/// The same as a stream of fopen's mode "r", "r+", "w" or "a"; null on failure.
UniqueFile open_regular(const char* path, const char* mode, std::string& reason);
/// A mode that keeps the content, for a file that the service writes: refuses a link.
UniqueFile open_regular_to_update(const char* path, std::string& reason);
