#pragma once

#include <optional>
#include <string>

/// Reads standard input line by line, as it comes.
class LineReader {
 public:
  /// The next line, without its line feed; nothing at the end. A line is cut one byte behind the
  /// longest request, so that it is still seen to be too long. Throws Interrupted.
  std::optional<std::string> next();

 private:
  bool fill();

  std::string pending;
  bool ended = false;
};
