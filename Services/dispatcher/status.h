#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "access/access_rules.h"
#include "libs/library_status.h"

/// Size in bytes of a buffer in which every reply to "quorvel.status" fits, its NUL included.
inline constexpr std::size_t kStatusReplySize = 10240;

/// The reply to "quorvel.status" as UTF-8 (see docs/protocol.md): the product's version, how long
/// the service has run, who may use it, and how each library does. It names no folder: any page may
/// ask.
///
/// Shorter than `size` bytes, which are kStatusReplySize or more: what would make it longer, the
/// reasons and function lists of the libraries that come last, and then the sites that do, is left
/// out whole, and such a library, or the access, has "truncated".
std::string status_reply(const std::vector<LibraryStatus>& libraries, const AccessRules& access,
                         std::chrono::seconds uptime, std::size_t size = kStatusReplySize);
