#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/libcheck/report.h"

/// The functions that a library declares.
struct FunctionList {
  std::string path;                ///< of the library
  std::string text;                ///< as decoded, up to its first zero byte
  std::vector<std::string> names;  ///< the words of the text
};

/// The list of the library at `path` whose getversion gave `answer` (hexadecimal digits).
FunctionList make_function_list(const std::string& path, std::string_view answer);

/// What is wrong with an answer and its list: lost functions, names that no request can reach.
std::vector<Finding> judge_function_list(std::string_view answer, const FunctionList& list);

/// The functions that both libraries would be asked for, each with the one that the service asks.
std::vector<Finding> judge_overlap(const FunctionList& ours, const FunctionList& other);
