#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// One number of a JSON text; an integer when it is written with neither fraction digits nor a
/// non-zero exponent.
struct JsonNumber {
  std::string print;  ///< text form: an integer's digits, or six digits after the point
  double value;       ///< finite; of an integer the low 32 bits, with their sign
};

/// Rewrites JSON texts into the form that cJSON parses as the service means it. cJSON keeps numbers
/// as doubles only, and refuses escapes that clients and reader libraries may send. So every number
/// is kept here as it was written and stands as "0 " in the rewritten text, and every escape is
/// resolved. Bytes from 128 upwards pass unchanged. Grammar and depth stay cJSON's to check.
class JsonSource {
 public:
  /// `text` must outlive the object.
  explicit JsonSource(std::string_view text) : source(text) {}

  /// Rewrites the first complete value; what follows it is ignored. False when a token can't be
  /// read; position() tells where.
  bool rewrite();

  /// The rewritten text, so far.
  const std::string& text() const { return rewritten; }
  /// The numbers of the text in document order.
  const std::vector<JsonNumber>& numbers() const { return found_numbers; }
  /// Offset in the source: the end of what has been read, or the token that can't be read.
  std::size_t position() const { return at; }
  /// Offset in the source of the token that gave the byte at `offset` of the rewritten text.
  std::size_t source_position(std::size_t offset) const;

 private:
  void skip_white_space();
  bool next_token();
  bool number();
  bool string();
  void escape();
  bool literal(std::string_view word);
  std::uint32_t unicode_escape();
  std::size_t digits(std::size_t from) const;

  std::string_view source;
  std::size_t at = 0;
  int depth = 0;
  std::string rewritten;
  std::vector<JsonNumber> found_numbers;
};
