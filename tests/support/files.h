#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// Whole files as bytes. Throw std::runtime_error that names the path.
std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, std::string_view bytes);

/// A folder under the system's temporary directory, removed with everything in it at the end.
class TemporaryFolder {
 public:
  /// `mark` becomes part of the folder's name. Throws std::system_error.
  explicit TemporaryFolder(const std::string& mark);
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::filesystem::path& path() const { return directory; }

 private:
  std::filesystem::path directory;
};
