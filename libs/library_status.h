#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "util/text/charset.h"

/// How a reader library does at present.
struct LibraryCondition {
  enum class State {
    kReady,       ///< a request would be served at once
    kWorking,     ///< in a process of its own, with a request
    kRestarting,  ///< in a process of its own, which is being started anew; requests wait
    kFailed       ///< requests are refused; `reason` says why
  };
  State state = State::kReady;
  Gbk reason;                     ///< or what a library has written; may name folders
  unsigned restarts = 0;          ///< how often it was started anew, in vain or not
  std::size_t waiting_calls = 0;  ///< that it has not been given yet
};

/// A library that the service INI file lists, loaded or not.
struct LibraryStatus {
  std::string key;             ///< "lib1" to "lib20"
  std::string path;            ///< of the file, as the registry has it
  std::string functions;       ///< as the library lists them; "" when it was never loaded
  std::chrono::seconds limit;  ///< of one call, in a process of its own; 0 in the service's
  LibraryCondition condition;
};
