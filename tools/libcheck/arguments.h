#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/libcheck/request.h"

/// What the command line asks for.
struct Arguments {
  std::string library;                // absolute path
  std::vector<std::string> others;    // absolute paths
  std::vector<Request> requests;      // empty: try every declared function
  std::chrono::milliseconds timeout;  // for one call into the library
  int rounds;
  bool json = false;
  bool help = false;
};

/// A command line that can't be carried out; what() says why.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

extern const char* const kUsage;

Arguments parse_arguments(int argc, char** argv);
