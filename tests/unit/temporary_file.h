#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

/// A file of the running test's own; removed at the end of its life.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view content) : path(testing::TempDir() + "quorvelXXXXXX") {
    close(mkstemp(path.data()));
    std::ofstream(path, std::ios::binary) << content;
  }
  ~TemporaryFile() { std::filesystem::remove(path); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const char* name() const { return path.c_str(); }
  std::string content() const {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::string path;
};
