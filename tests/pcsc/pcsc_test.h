#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "tests/pcsc/iso_card.h"
#include "tests/pcsc/virtual_card.h"
#include "tests/support/files.h"

inline const std::string kT1Atr = bytes("3B 80 01 81");
inline const std::string kT0Atr = bytes("3B 00");

/// The library as installed, loaded as the service loads it, beside a profile file of the test's.
class PcscLibrary {
 public:
  PcscLibrary();
  PcscLibrary(const PcscLibrary&) = delete;
  PcscLibrary& operator=(const PcscLibrary&) = delete;
  ~PcscLibrary();

  /// Puts the text into the place of the shipped profiles.
  void write_profiles(const std::string& text) const;
  /// The functions that the library declares with the profiles as they are, or why it refuses to be
  /// loaded.
  std::string functions() const;
  /// The reply (UTF-8) to a request; `data` are the members of "data".
  std::string call(const std::string& function, const std::string& data = "") const;

 private:
  template <typename Entry>
  Entry* entry(const char* name) const;

  const TemporaryFolder folder{"pcsc"};
  void* handle;
};

/// A pcscd of the test's own, and the library.
class PcscTest : public testing::Test {
 protected:
  /// The reply once the reader says so of its card; `present` as in the reply of "pcsc.readers".
  void wait_for_card(const std::string& present = "true");
  /// Puts the card into the reader and waits until it is noticed.
  void insert(const std::string& atr, VirtualCard::Answers answers);
  void insert(const std::string& atr, IsoCard& card);
  void pull();

  Pcscd pcscd;
  PcscLibrary library;
  std::optional<VirtualCard> inserted;
};

/// What a failure reply to "readcardbas" begins with.
std::string failed(const std::string& code);
/// Expects that the reply begins so.
void expect_reply(const std::string& beginning, const std::string& reply);
