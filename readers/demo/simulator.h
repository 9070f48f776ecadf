#pragma once

#include <string>
#include <string_view>

#include "readers/demo/card_file.h"

/// A card reader without hardware: answers from the card file and fails as that file says.
class Simulator {
 public:
  /// The names of the functions, each followed by a line feed.
  static std::string function_list();

  struct Reply {
    bool success;
    std::string json;  // GBK, compact, with the terminating zero within QUORVEL_REPLY_SIZE bytes
  };

  /// Answers one request after the time that the reader takes for it. `command` is the request's
  /// JSON object without its "fid". Every failure becomes a failure reply; only memory exhaustion
  /// is thrown.
  Reply answer(const std::string& function, std::string_view command);

 private:
  CardFile cards;
};
