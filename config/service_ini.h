#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/ini.h"
#include "config/known_keys.h"

inline constexpr char kServiceIni[] = "quorvel_service.ini";

/// The service INI file, read once at the start of the service, for the owners of its settings.
class ServiceIni {
 public:
  /// Reads the file at `path`, and says nothing yet: the file itself tells in which character set.
  /// One that can't be read counts as empty.
  explicit ServiceIni(std::string path);

  const std::string& file() const { return path; }
  /// Why the file can't be read; empty when it can.
  const std::string& failure() const { return ini.failure(); }
  const std::vector<IniLine>& lines() const { return ini.lines(); }

  /// The value, or "": also for one beyond 255 bytes.
  std::string value(const char* section, const char* key) const;
  std::vector<std::string> keys(const char* section) const { return ini.Keys(section); }

  /// Says in the log that the file can't be read, or names each line of it that has no effect,
  /// since it is none of these keys.
  void report(const KnownKeys& known) const;

 private:
  const std::string path;
  CIni ini;
};
