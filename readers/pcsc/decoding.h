#pragma once

#include <string>
#include <string_view>

#include "readers/pcsc/profile.h"

/// The text (UTF-8) that a card's bytes stand for, without blanks and zeros at its ends: letters
/// and digits in one of the encodings, or the bytes as hexadecimal, decimal (BCD, a filler F ends
/// it) or as one number. Throws CardDataError.
std::string decode(std::string_view bytes, Decoding decoding);

/// A date as YYYY-MM-DD: eight digits, or day, month and year with anything between them, the month
/// a number or a name in English, French, Dutch or German. Any other text stays as it is: cards
/// hold a year alone, or "unlimited".
std::string to_iso_date(std::string_view text, DateOrder order);
