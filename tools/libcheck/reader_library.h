#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "quorvel_reader.h"
#include "tools/libcheck/fenced_buffer.h"

/// What a call of getversion left behind.
struct VersionRecord {
  std::int32_t returned;
  double milliseconds;
  char answer[QUORVEL_ANSWER_SIZE];
  char error[QUORVEL_ERROR_SIZE];
};

/// What a call of scommand left behind.
struct CommandRecord {
  std::int32_t returned;
  double milliseconds;
  char reply[QUORVEL_REPLY_SIZE];
};

/// A reader library in a child process: loaded as the service loads it, with fenced buffers at its
/// entry points. Every call is announced to the parent; whatever leaves a call other than its
/// result is thrown as a ContractBreak.
class ReaderLibrary {
 public:
  /// Throws ContractBreak when the loader refuses the file.
  explicit ReaderLibrary(const std::string& path);
  /// Unloads the library, unless a rule was broken: in a state unknown it is left to the end of the
  /// process, so that what it does there does not hide the reason.
  ~ReaderLibrary();
  ReaderLibrary(const ReaderLibrary&) = delete;
  ReaderLibrary& operator=(const ReaderLibrary&) = delete;

  double load_milliseconds() const { return load_time; }

  /// Comes before all other calls. Throws ContractBreak when one is missing.
  void find_entry_points();

  VersionRecord getversion();
  /// Returns the milliseconds that it took. Throws ContractBreak when the library refuses.
  double init();
  void uninit();
  CommandRecord scommand(const std::string& name, const std::string& command);

  /// Unloads the library, as a call that can crash or hang like any other.
  void unload();

 private:
  struct Closer {
    void operator()(void* library) const;
  };

  template <typename Entry>
  void find(const char* name, Entry& entry) const;

  std::unique_ptr<void, Closer> handle;
  double load_time = 0;
  FencedBuffer verinfo{"getversion's verinfo area", QUORVEL_VERINFO_SIZE};
  FencedBuffer verextra{"getversion's verextra area", QUORVEL_VEREXTRA_SIZE};
  decltype(&::init) p_init = nullptr;
  decltype(&::uninit) p_uninit = nullptr;
  decltype(&::scommand) p_scommand = nullptr;
  decltype(&::getversion) p_getversion = nullptr;
};
