#pragma once

#include <sys/stat.h>

#include <string>

/// A file beside the reader library, edited by people while the service runs.
class LibraryFile {
 public:
  explicit LibraryFile(const std::string& name);

  const std::string& path() const { return full_path; }

  /// Whether the file is another, or has other content, than when seen() was called last. Throws
  /// Failure (card_file) when it can't be examined.
  bool changed();
  /// The file as changed() found it has been read.
  void seen() { state = now; }

 private:
  std::string full_path;
  struct stat state = {};  ///< of the file that was read
  struct stat now = {};
};
