#pragma once

#include <string>
#include <string_view>

/// `text` in GBK. What is not UTF-8, or has no GBK character, becomes "?".
std::string utf8_to_gbk(std::string_view text);

/// `text`, GBK, in UTF-8. Throws std::invalid_argument when it is not GBK.
std::string gbk_to_utf8(std::string_view text);
