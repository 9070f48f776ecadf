#pragma once

#include <cstddef>
#include <string_view>

/// How far a conversion came: bytes read and bytes written.
struct Progress {
  std::size_t read = 0;
  std::size_t written = 0;
};

/// Converts GBK to UTF-8 by a table of GBK's pairs, which iconv itself fills, row by row, when a
/// row is first needed: opening a converter for each text would cost more than a whole request.
/// Stops, at a whole character, before the first that is neither ASCII nor a pair that iconv knows,
/// or for which less than 4 of the `room` bytes at `out` are left (1 for ASCII): the rest is
/// iconv's. Adds no NUL, and may spoil what is left of `out`.
Progress convert_known_gbk(std::string_view gbk, char* out, std::size_t room);
