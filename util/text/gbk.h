#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Length in bytes of the character at the start of `text` (not empty) in GBK, or in GB18030, of
/// which GBK is a part: 1 for ASCII, 2 for a lead and a trail byte, 4 for one of GB18030's long
/// codes, 0 when the bytes begin no character. A code needs no character assigned to it.
std::size_t gbk_char_length(std::string_view text);

/// `text` as GBK (or GB18030) of at most `max_bytes` bytes: cut at a whole character, with a "?"
/// for every byte that begins no character.
std::string clean_gbk(std::string_view text, std::size_t max_bytes = std::string_view::npos);
