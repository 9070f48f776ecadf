#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Owner of one stdio stream; closes it at the end of its life.
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;
