#include "tests/support/files.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/support/checked.h"

namespace fs = std::filesystem;

std::string read_file(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(stream), {});
  if (!stream) throw std::runtime_error(path.string() + ": can't be read");
  return bytes;
}

void write_file(const fs::path& path, std::string_view bytes) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush();
  if (!stream) throw std::runtime_error(path.string() + ": can't be written");
}

TemporaryFolder::TemporaryFolder(const std::string& mark) {
  std::string pattern = (fs::temp_directory_path() / (mark + "-XXXXXX")).string();
  checked(mkdtemp(pattern.data()) == nullptr ? -1 : 0, pattern.c_str());
  directory = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(directory, ignored);
}
