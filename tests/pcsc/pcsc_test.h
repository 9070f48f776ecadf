#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "libs/local_library.h"
#include "tests/pcsc/virtual_card.h"
#include "tests/support/files.h"

/// The library as installed, bound as the service binds it, beside a profile file of the test's.
class PcscLibrary {
 public:
  PcscLibrary();

  /// Puts the text into the place of the shipped profiles.
  void write_profiles(const std::string& text) const;
  /// Loads the library anew and returns the functions that it declares.
  std::string functions();
  /// The reply (UTF-8) to a request; `data` are the members of "data".
  std::string call(const std::string& function, const std::string& data = "") const;

 private:
  const TemporaryFolder folder{"pcsc"};
  std::unique_ptr<Library> library;
};

/// The library, and a reader with a pcscd of the test's own.
class PcscTest : public testing::Test, protected CardReader {
 protected:
  std::string readers() const override { return library.call("pcsc.readers"); }

  PcscLibrary library;
};

/// What a failure reply to "readcardbas" begins with.
std::string failed(const std::string& code);
/// Expects that the reply begins so.
void expect_reply(const std::string& beginning, const std::string& reply);
