#pragma once

#include <string>
#include <string_view>

#include "util/text/charset.h"

/// A UTF-8 text in GBK, and a GBK text in UTF-8. Throw std::runtime_error when it can't be.
std::string gbk(std::string_view text);
std::string utf8(std::string_view text);
inline std::string utf8(GbkView text) { return utf8(text.bytes()); }

/// The service's reply that gives a reason, with "fid" if there is one; all UTF-8.
std::string failure(std::string_view reason, const std::string& fid = {});
