#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "util/handle/unique_file.h"

/// Whether an INI line opens a section: not a comment, and it holds a "[" and a "]". Where values
/// may be addresses, brackets behind a "=" are those of an IPv6 address.
bool is_section_header(std::string_view line, bool values_are_addresses = false);

/// A line that is neither empty nor a comment.
struct IniLine {
  int number;           ///< from 1; the pieces of a long line have the same
  std::string section;  ///< that the line stands in or opens
  std::string key;      ///< empty when it is no key line
  std::string text;     ///< without blanks in front and line end
  bool opens_section;
};

/// Reader of INI files: parses a whole file into memory, then answers look-ups by section and key.
///
/// Lines are read in pieces of at most 255 bytes with their line feed. A line whose first non-blank
/// byte is ";" is a comment; a line with a "[" and a "]" is a section header; a line with "=" is a
/// key line, whose value runs to the end of the line. Nothing is trimmed but blanks and tabs at the
/// start of a line and its line end. A section name that occurs again replaces the earlier one.
/// Names are case-sensitive; bytes of any encoding pass unchanged.
/// Used by one thread at a time. Out of memory is thrown; nothing else is.
class CIni {
 public:
  CIni() = default;
  /// For a file in one section of which values may be addresses.
  explicit CIni(std::string_view section) : address_section(section) {}
  virtual ~CIni() = default;
  CIni(const CIni&) = delete;
  CIni& operator=(const CIni&) = delete;

  /// Opens `path`, a regular file, with fopen's `mode` and parses it. 0; or 2, with what was read
  /// before kept and a line on standard output, when the file can't be opened. A read error ends
  /// the file early.
  int OpenFile(const char* path, const char* mode);
  /// Why the last OpenFile failed.
  const std::string& failure() const { return reason; }
  /// What the last OpenFile read, in the file's order.
  const std::vector<IniLine>& lines() const { return read_lines; }
  /// Releases the file; what was read stays. Always 0.
  int CloseFile();

  /// Copies the value, or "" when there is none, to `out` of `size` bytes; a value that does not
  /// fit gives "". Always 0.
  int GetKey(const char* section, const char* key, char* out, std::size_t size = 255) const;
  /// The value, or "". Valid until the next GetStr or GetInt on this object.
  char* GetStr(const char* section, const char* key);
  /// The value as atoi reads it, 0 when there is none.
  int GetInt(const char* section, const char* key);

  /// The section's keys, in byte order; none when there is no such section.
  std::vector<std::string> Keys(const std::string& section) const;

  /// Writes a section header and a key line at the file's current position; without effect unless
  /// the file was opened for writing.
  void PutStr(const char* section, const char* key, const char* value);

 private:
  void parse_line(std::string line, int number, std::string& section,
                  std::map<std::string, std::string>& keys);

  const std::string address_section;  ///< "": none
  UniqueFile fp;
  std::string reason;
  std::vector<IniLine> read_lines;
  char valbuf[256] = {};
  std::map<std::string, std::map<std::string, std::string>> sections;
};
