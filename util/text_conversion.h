#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Converts `inlen` bytes of GBK text at `in` into UTF-8 at `out`, which has `outlen` bytes; all of
/// them are cleared first, so the result is NUL-terminated whenever it is shorter than `outlen`.
/// Returns 0, or -1 when the conversion stopped early (invalid or incomplete character, no room);
/// `out` then holds what was converted up to there.
int gbk2utfa(const char* in, std::size_t inlen, char* out, std::size_t outlen);

/// Sets `utf8` to the GBK text in UTF-8. False when it is no GBK to its end; `utf8` then holds what
/// comes before the fault.
bool gbk_to_utf8(std::string_view gbk, std::string& utf8);

/// Loads what the conversion needs and keeps it for the life of the process; later conversions then
/// work also when no descriptor is free to open a file with. False when GBK can't be converted on
/// this system.
bool preload_conversion();

/// Converts the NUL-terminated GBK text `source` into `destination`, using twice the source's
/// length there: room that every valid text, with its terminator, fits into. `destination_size`
/// is a further bound for a caller whose buffer may be smaller. An empty source writes nothing.
void cpy2utfa(char* destination, const char* source, std::size_t destination_size = SIZE_MAX);
