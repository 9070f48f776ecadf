#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Decodes a reader library's function list from hexadecimal digits, two a byte. The pairs are
/// formed from the end, so the first digit of an odd number of digits gives a byte by itself.
/// Decoding runs from the end to the first character that is no hexadecimal digit; the bytes of
/// the characters before it are 0. At most `limit` bytes result.
std::string decode_function_list(std::string_view answer, std::size_t limit);
