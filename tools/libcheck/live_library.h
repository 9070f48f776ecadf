#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include "access/access_rules.h"
#include "libs/lib_manager.h"
#include "server/answer.h"

/// The library can't be loaded; what() says why.
class CannotLoad : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a page gets for one request.
struct PageReply {
  std::string text;         ///< UTF-8
  bool success = false;     ///< its "result" is "true"
  bool by_library = false;  ///< otherwise the service wrote it, as after a crash
  double milliseconds = 0;
};

/// A library as the service holds an isolated one: loaded once, in a helper process, answering one
/// request after the other through the service's own code. It is loaded anew after a crash, and
/// after a call that takes too long. What the service would log about it goes to standard error.
class LiveLibrary {
 public:
  /// `limit` bounds loading and each call. Throws CannotLoad.
  LiveLibrary(const std::string& path, std::chrono::milliseconds limit);
  ~LiveLibrary();
  LiveLibrary(const LiveLibrary&) = delete;
  LiveLibrary& operator=(const LiveLibrary&) = delete;

  /// `page` is a request that make_request takes. Throws Interrupted.
  PageReply answer(const std::string& page);

 private:
  const std::string platform;
  LibManager registry;
  const AccessRules access;  ///< none
  Answerer answers;
  bool waits = false;
  char reply[kAnswerSize] = {};
  bool by_library = false;
};
