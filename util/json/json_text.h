#pragma once

#include <string>
#include <string_view>

#include "util/text/charset.h"

/// Length in bytes of what stands at the start of `text` as it does in the content of a JSON
/// string: whole characters up to the first quotation mark, backslash, control byte or, in GBK,
/// byte that begins no character.
std::size_t plain_length(std::string_view text, Charset charset);

/// Length in bytes of the character at the start of `text` (not empty), at least 1.
std::size_t char_length(std::string_view text, Charset charset);

/// Appends `text` to `out` as the content of a JSON string: quotation marks, backslashes and
/// control bytes escaped, U+FFFD, escaped, for what is no character in GBK, everything else as it
/// is.
void append_escaped(std::string& out, std::string_view text, Charset charset);

/// The text that the content of a JSON string stands for, of a string that append_escaped or the
/// scanner wrote. In GBK an escape of a character outside ASCII has no text: its letters stay.
std::string unescaped(std::string_view content, Charset charset);
