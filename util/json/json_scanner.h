#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "util/json/json_text.h"

/// One member of a document's top-level object, by its places in the document's text.
struct JsonMember {
  std::size_t key;    ///< of the key's opening quotation mark
  std::size_t value;  ///< of the value's first byte; behind the key's closing mark and the colon
  std::size_t end;    ///< behind the value
  double number;      ///< the value, when it is a number with a fraction or an exponent
};

/// Reads a JSON text once and prints it in compact form on the way, as the service means it: every
/// integer with all its digits, other numbers with six digits after the point, every escape
/// resolved where that is possible. Takes liberties that JSON does not: any escaped character,
/// bare control bytes, numbers with leading zeros or without digits after the point.
class JsonScanner {
 public:
  /// `text` must outlive the object.
  JsonScanner(std::string_view text, Charset bytes) : source(text), charset(bytes) {}

  /// Reads the first complete value; what follows it is ignored. False when there is none;
  /// position() tells where reading stopped. A value nested deeper than 1,000 levels is none.
  bool scan();

  std::size_t position() const { return at; }
  /// After scan(): the compact text, and the members when it is an object. To be moved from.
  std::string& text() { return print; }
  std::vector<JsonMember>& members() { return found; }

 private:
  void leave_out(std::size_t end);
  std::size_t printed() const { return print.size() + at - copied; }
  void skip_white_space() {
    if (at < source.size() && static_cast<unsigned char>(source[at]) <= ' ')
      leave_out_white_space();
  }
  void leave_out_white_space();
  char next() const { return at < source.size() ? source[at] : '\0'; }
  bool take(char c) {
    skip_white_space();
    if (next() != c) return false;
    ++at;
    return true;
  }
  bool value();
  bool items(bool (JsonScanner::*item)(), char closing);
  bool member();
  bool string();
  void escape();
  bool unicode_escape();
  bool number();
  bool print_number(std::size_t end, std::size_t integer_end, bool is_integer);
  bool literal(std::string_view word);

  std::string_view source;
  Charset charset;
  std::size_t at = 0;
  std::size_t copied = 0;  ///< from here to `at`, what stays as it is and is yet to be printed
  int depth = 0;
  double last_number = 0;
  std::string print;
  std::vector<JsonMember> found;
};
