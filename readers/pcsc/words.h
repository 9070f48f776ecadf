#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// A mistake in one value of the profile file: what is wrong and the cure, UTF-8.
struct Mistake : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The words of a value, taken one after the other.
class Words {
 public:
  explicit Words(std::string_view value) : left(value) { skip_blanks(); }

  bool empty() const { return left.empty(); }
  /// The next word without taking it; empty at the end.
  std::string_view peek() const { return left.substr(0, left.find_first_of(" \t")); }
  std::string_view next();
  /// Takes the next word if it is this one.
  bool take(std::string_view word);

  /// A number, decimal or behind "0x" hexadecimal, within the limits. Throws Mistake, as all below.
  unsigned number(const char* what, unsigned least, unsigned most);
  /// The same if the next word begins with a digit.
  std::optional<unsigned> optional_number(const char* what, unsigned least, unsigned most);
  /// All that follows as hexadecimal bytes, blanks between them or not, up to a word that is none.
  std::string bytes(const char* what, std::size_t least, std::size_t most);

 private:
  void skip_blanks();

  std::string_view left;
};
