#pragma once

#include <stdexcept>

/// What a card holds is not what its description says: an object that breaks off, a text of another
/// encoding, no date. The text (UTF-8) says which of these.
struct CardDataError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
