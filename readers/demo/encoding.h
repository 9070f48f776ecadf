#pragma once

#include <string>
#include <string_view>

/// `text` in GBK. What is not UTF-8, or has no GBK character, becomes "?".
std::string utf8_to_gbk(std::string_view text);
