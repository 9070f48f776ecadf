#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Length in bytes of the GBK character at the start of `text` (not empty): 1 for ASCII, 2 for a
/// lead and trail byte, 0 when the bytes begin no GBK character.
std::size_t gbk_char_length(std::string_view text);

/// `text` as valid GBK of at most `max_bytes` bytes: cut at a whole character, and every byte that
/// begins no character replaced by "?". Keeps one stray byte of a client or of the system from
/// ending the conversion of a whole reply early.
std::string clean_gbk(std::string_view text, std::size_t max_bytes = std::string_view::npos);
