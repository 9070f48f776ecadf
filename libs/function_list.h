#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Decodes a reader library's function list from hexadecimal digits, two a byte. The pairs are
/// formed from the end, so the first digit of an odd number of digits gives a byte by itself.
/// Decoding runs from the end to the first character that is no hexadecimal digit; the bytes of
/// the characters before it are 0. At most `limit` bytes result.
std::string decode_function_list(std::string_view answer, std::size_t limit);

/// The functions' names in a decoded list, in its order. Makers arrange their lists freely: the
/// names are what stands between blanks, line ends, commas, semicolons, bars, quotation marks and
/// brackets, up to the first zero byte.
std::vector<std::string> function_names(std::string_view list);

/// How the names of the service's own functions begin, in any letter case. No library is asked for
/// such a one.
inline constexpr char kReservedPrefix[] = "quorvel.";
bool is_reserved_name(std::string_view name);
