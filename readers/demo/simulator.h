#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "readers/demo/card_file.h"

/// A card reader without hardware: answers from the card file and fails as that file says.
class Simulator {
 public:
  /// The names of the functions, each followed by a line feed.
  static std::string function_list();

  struct Reply {
    bool success;
    std::string json;  // GBK, compact, with the terminating zero within QUORVEL_REPLY_SIZE bytes
    int delay_ms;      // time that the reader takes for it
  };

  /// Answers one request after the time that the reader takes for it. `command` is the request's
  /// JSON object without its "fid". Every failure becomes a failure reply; only memory exhaustion
  /// is thrown.
  Reply answer(const std::string& function, std::string_view command);

 private:
  Reply find_reply(const std::string& function, std::string_view command);

  CardFile cards;
  // By function and command. A reply follows from these and the card file alone, and pages ask for
  // the same again and again. Emptied when the file has changed.
  std::unordered_map<std::string, Reply> remembered;
};
