#pragma once

#include <string_view>
#include <vector>

#include "readers/pcsc/profile.h"

/// Reads the value of a "step" line. Throws Mistake.
Step parse_step(std::string_view value);

/// Reads the value of a "member" line; `steps` are those that stand before it. Throws Mistake.
Member parse_member(std::string_view name, std::string_view value, const std::vector<Step>& steps);

/// Reads an ATR: hexadecimal digits, "?" for a digit that may be any, "*" at the end for any
/// further bytes. Throws Mistake.
AtrPattern parse_atr(std::string_view value);
