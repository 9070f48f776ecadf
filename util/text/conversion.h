#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/text/charset.h"
#include "util/text/text_buffer.h"

/// iconv's name of the character set of the service's texts.
inline constexpr char kGbkCharset[] = "gbk";

/// Converts `inlen` bytes of GBK text at `in` into UTF-8 at `out`, which has `outlen` bytes; all of
/// them are cleared first, so the result is NUL-terminated whenever it is shorter than `outlen`.
/// Returns 0, or -1 when the conversion stopped early (invalid or incomplete character, no room);
/// `out` then holds what was converted up to there.
int gbk2utfa(const char* in, std::size_t inlen, char* out, std::size_t outlen);

/// Converts the NUL-terminated GBK text `source` into `destination`, using twice the source's
/// length there: room that every valid text, with its terminator, fits into. `destination_size`
/// is a further bound for a caller whose buffer may be smaller. An empty source writes nothing.
void cpy2utfa(char* destination, const char* source, std::size_t destination_size = SIZE_MAX);

/// U+FFFD, which stands for what is no character.
inline constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

/// UTF-8 bytes that one byte of a library's reply can become, at most: U+FFFD for a stray one.
inline constexpr std::size_t kLargestGrowth = 3;

/// Converts a text of a reader library whole, whatever it holds, into UTF-8 at `out`, which has
/// room for kLargestGrowth times its length and the NUL: GBK as gbk2utfa does; a text that is no
/// GBK as GB18030, with U+FFFD for each byte that begins no character. True when it was GBK.
bool library_text_to_utf8(GbkView text, TextBuffer out);
bool library_text_to_utf8(GbkView text, std::string& utf8);

/// Sets `utf8` to the GBK text in UTF-8. False when it is no GBK to its end; `utf8` then holds what
/// comes before the fault.
bool gbk_to_utf8(GbkView gbk, std::string& utf8);

/// The UTF-8 text in GBK. What is not UTF-8, or has no character in GBK, becomes "?".
Gbk utf8_to_gbk(Utf8View utf8);

/// A text for the log, which is UTF-8: one in GBK, whatever it holds, and bytes of others, such as
/// names of files, lines of settings and messages of the loader, which are UTF-8 when they can be,
/// else GBK.
Utf8 shown(GbkView gbk);
Utf8 shown(std::string_view bytes);
/// The same bytes of others in a text in GBK. What is GBK stays as it is.
Gbk gbk_of(std::string_view bytes);

/// Loads what the conversions need and keeps it for the life of the process; they then work also
/// when no descriptor is free to open a file with. False when this system can't convert GBK.
bool preload_conversion();
