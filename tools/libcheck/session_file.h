#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/libcheck/live_library.h"
#include "tools/libcheck/request.h"
#include "util/handle/unique_file.h"

// A recorded session: JSON lines in UTF-8. The first tells of the session, each other of one call;
// docs/reader-library.md lists their members.

/// A session's file can't be written or read; what() names the file, the line and the cure.
class SessionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct RecordedCall {
  Request request;
  PageReply reply;
};

/// Writes a session, line by line: what is interrupted keeps the calls up to there.
class SessionWriter {
 public:
  /// Makes the file, for its owner's eyes only. Throws SessionError, also when there is one
  /// already.
  SessionWriter(std::string file_path, const std::string& library);

  /// Throws SessionError.
  void add(const RecordedCall& call);
  int count() const { return calls; }

 private:
  void write_line(const std::string& json);

  const std::string path;
  UniqueFile file;
  int calls = 0;
};

/// All calls of the session; at least one. Throws SessionError.
std::vector<RecordedCall> read_session(const std::string& path);
