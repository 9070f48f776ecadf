#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "util/text/charset.h"
#include "util/text/text_buffer.h"

namespace neb {
class CJsonObject;
}

/// Adds the string member `key` to the document; nothing changes when it has such a member already
/// or is not an object. An empty document becomes an object first.
void jsonadd(neb::CJsonObject* json, const char* key, const unsigned char* value);

/// A reader library's `reply` with the string member "fid" of the text `name` appended, printed
/// without white space; what GBK lacks becomes "?" in the name. Nothing when the reply is to stay
/// as it is: it has such a member, or holds "fid" in quotation marks anywhere.
std::optional<Gbk> with_fid(const Gbk& reply, Utf8View name);

/// Replaces the library's reply (GBK) in `out` by what with_fid makes of it. One that has no room
/// for its "fid" stays as the library wrote it.
void complete_fid(TextBuffer out, Utf8View name);

/// Writes the document (GBK) as the reply to `out`; a failure reply when it does not fit.
void write_reply(TextBuffer out, const neb::CJsonObject& json);
