#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/libcheck/request.h"

/// What the command line asks for.
struct Arguments {
  std::string library;                ///< absolute path
  std::vector<std::string> others;    ///< absolute paths
  std::vector<Request> requests;      ///< of the check; empty: try every declared function
  std::vector<Request> calls;         ///< to show, or to record
  std::string record;                 ///< file to write; empty: none
  std::string replay;                 ///< file to read; empty: none
  std::chrono::milliseconds timeout;  ///< for one call into the library
  int rounds;
  bool json = false;
  bool pretty = false;
  bool watch = false;
  bool help = false;
};

/// A command line that can't be carried out; what() says why.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

extern const char* const kUsage;

Arguments parse_arguments(int argc, char** argv);
