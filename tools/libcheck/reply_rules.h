#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/libcheck/report.h"

/// A library's reply, held against the contract.
struct Verdict {
  std::vector<Finding> problems;  ///< without name; empty: the reply keeps all rules
  bool success = false;           ///< its "result" is "true"
  bool beyond_gbk = false;        ///< it holds characters that GB18030 has and GBK lacks
  std::string page;               ///< what the page receives, UTF-8; empty when it is unusable
};

/// Judges what scommand left in its reply buffer, all of it, and the value that it returned.
/// `function` is the name that was requested.
Verdict judge_reply(std::string_view buffer, int returned, const std::string& function);
