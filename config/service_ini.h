#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/ini.h"

/// The service INI file, read once at the start of the service. What is wrong with it is said in
/// the log: in general by its constructor, and by the functions for the values that they give.
class ServiceIni {
 public:
  /// Reads the file at `path` and names every line of it that has no effect. A file that can't be
  /// read counts as empty.
  explicit ServiceIni(std::string path);

  CIni& values() { return ini; }
  const std::string& file() const { return path; }

  /// The file's lines, like CIni's; but in [ACCESS] a value may hold the brackets of an IPv6
  /// address, which CIni takes for those of a section's header.
  const std::vector<IniLine>& lines() const { return file_lines; }
  /// Whether the line seems to be meant for the section and misses it: a key that the section does
  /// not know, one of its keys elsewhere, a line without "=", a header in other letters.
  static bool misses(const IniLine& line, std::string_view section);

  /// [SERVER] localport: the TCP port to listen on, or 0 when the file names none that can be used.
  int listening_port();
  /// [LOG] charset: whether the log is to be written in UTF-8 instead of GBK.
  bool log_in_utf8();

 private:
  const std::string path;
  CIni ini;
  bool readable;
  std::vector<IniLine> file_lines;
};
