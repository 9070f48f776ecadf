#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Readers of tagged data as cards hold it. They check every length before they use it; a view that
// they return is a part of the data that they were given. A length that says more than there is,
// and an object that breaks off, throw CardDataError.

struct BerObject {
  std::uint32_t tag;  ///< with all its bytes, such as 0x5F2D
  std::string_view value;
};

/// The object at the start of `data`, which is taken off, as are fill bytes (00 and FF) before it;
/// nothing at the end of the data.
std::optional<BerObject> next_ber_object(std::string_view& data);

/// The value behind a path of tags, from the outside in: of each tag the first object. Nothing when
/// there is none.
std::optional<std::string_view> find_ber(std::string_view data,
                                         const std::vector<std::uint32_t>& path);

/// A tag written in hexadecimal: one to four bytes whose form is right. Nothing otherwise.
std::optional<std::uint32_t> parse_ber_tag(std::string_view digits);

/// How objects with a tag of one byte write a length of 255 or more: FF and two bytes, or as many
/// FF as there are and a last byte, all added up.
enum class LongLength { kTwoBytes, kSum };

/// The objects of a CAC's container, whose tags with lengths are in one buffer and whose values,
/// one after the other, in another: put together, with long lengths as LongLength::kTwoBytes. Long
/// ones of `tags` are FF and two bytes too, the low one first.
std::string join_buffers(std::string_view tags, std::string_view values);

/// The value of the first object with a tag of one byte. Nothing when there is none.
std::optional<std::string_view> find_simple(std::string_view data, unsigned char tag,
                                            LongLength form);
