#pragma once

#include <memory>
#include <string>

#include "config/ini.h"
#include "readers/common/library_file.h"

/// The cards and the state of the simulated reader: an INI file that people edit while the service
/// runs. Its sections are the reader and one card each.
class CardFile {
 public:
  /// Reads the file if it has changed since the last time. Throws Failure when it can't be read;
  /// what was read before stays then.
  void refresh();

  /// The value in UTF-8, empty when there is none. Throws Failure when its bytes are not of the
  /// file's charset.
  std::string text(const std::string& section, const char* key) const;

  /// The number of milliseconds under "delay_ms". Throws Failure when it is out of range.
  int delay_ms(const std::string& section) const;

 private:
  LibraryFile file{"demo_cards.ini"};
  std::unique_ptr<CIni> cards;
  bool is_utf8 = false;
};
