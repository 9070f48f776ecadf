#pragma once

#include <string>

#include "libs/funlib.h"
#include "libs/library.h"

/// A library loaded into the service.
class LocalLibrary final : public Library {
 public:
  explicit LocalLibrary(const std::string& path) : binding(path.c_str()) {}

  bool init(TextBuffer errtext) override { return binding.init(errtext.data, errtext.size); }
  const char* functions() const override { return binding.functions(); }
  int call(const char* name, const char* command, TextBuffer reply, Deferral* later) override;

 private:
  Funlib binding;
};
