#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Length in bytes of the GBK character at the start of `text` (not empty): 1 for ASCII, 2 for a
/// lead and trail byte, 0 when the bytes begin no GBK character.
std::size_t gbk_char_length(std::string_view text);

/// `text` as GBK of at most `max_bytes` bytes that is safe in a reply: cut at a whole character,
/// with a "?" for every byte that begins no character, which would end the conversion of the whole
/// reply early, and for every character whose second byte is 0x5C, which the JSON document would
/// take for a backslash.
std::string clean_gbk(std::string_view text, std::size_t max_bytes = std::string_view::npos);

/// The JSON document takes bytes for characters and gives escaped characters as UTF-8, which spoils
/// a GBK text. These carry the GBK JSON text of a reader library through it: the first hides every
/// backslash that is the second byte of a character, and that of every escape of a character
/// outside ASCII; the second brings them back in what the document prints.
std::string mask_backslashes(std::string_view gbk);
std::string unmask_backslashes(std::string masked);
