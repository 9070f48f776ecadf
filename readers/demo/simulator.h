#pragma once

#include <string>
#include <string_view>

#include "readers/common/reader.h"
#include "readers/demo/card_file.h"

/// A card reader without hardware: answers from the card file and fails as that file says. A reply
/// comes after the time that the reader takes for it.
class Simulator : public Reader {
 public:
  Reply answer(const std::string& function, std::string_view command) override;

 private:
  CardFile cards;
};
