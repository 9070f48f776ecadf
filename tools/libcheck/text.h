#pragma once

#include <string>
#include <string_view>

#include "util/text/utf8.h"

/// `text`, which a library wrote, for a terminal or a JSON report: GBK and GB18030 become UTF-8,
/// and a byte that is no character of theirs, or not printable, becomes \x and two hexadecimal
/// digits.
std::string readable(std::string_view text);

/// The same for a text that is UTF-8 already unless it is an odd one: of a page's request, a path.
std::string readable_request(std::string_view text);

/// Whether `text` is UTF-8 and holds a character of three bytes, as nearly every Chinese
/// text in UTF-8 does and hardly any in GBK.
bool looks_like_chinese_utf8(std::string_view text);

/// At most `columns` characters of `utf8`, with "..." where something was cut off, and with control
/// bytes as readable() writes them.
std::string shortened(std::string_view utf8, std::size_t columns);
