#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "readers/common/library_file.h"
#include "readers/pcsc/profile.h"

/// Reads the text of a profile file (UTF-8). Each mistake is added to `mistakes` as one line that
/// names the line, the section, the key and the cure (UTF-8); the set is of use only when there is
/// none.
///
/// Unlike the service's settings, this file has an order, keys that stand several times, and blanks
/// that don't count, and nothing in it may go unnoticed: hence a reader of its own.
ProfileSet parse_profiles(std::string_view text, std::vector<std::string>& mistakes);

/// The file with the descriptions of cards that stands beside the library.
class ProfileFile {
 public:
  /// The file as it is now. Throws Failure (card_file) with its mistakes.
  const ProfileSet& current();

 private:
  LibraryFile file{"pcsc_cards.ini"};
  ProfileSet profiles;
};
