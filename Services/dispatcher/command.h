#pragma once

#include <string>

#include "sdk/quorvel_reader.h"
#include "util/text/charset.h"

namespace neb {
class CJsonObject;
}

/// Longest request text and function name that the service takes, in bytes.
inline constexpr std::size_t kLongestRequest = QUORVEL_COMMAND_SIZE - 1;
inline constexpr std::size_t kLongestName = QUORVEL_NAME_SIZE - 1;

/// Makes of a page's request the command that a reader library gets: takes the member "fid" out,
/// into `name`, and adds the member "platform" of that text unless the request has one. Empty, or
/// the reason why the service refuses the request; `name` and `request` are then undefined.
GbkView make_command(neb::CJsonObject& request, const char* platform, std::string& name);
