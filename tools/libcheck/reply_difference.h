#pragma once

#include <string>
#include <vector>

/// In what two replies (UTF-8) differ for a page, a line for each member, such as
/// `data.name: "old", now "new"`; empty when a page can't tell them apart.
std::vector<std::string> reply_differences(const std::string& then, const std::string& now);
