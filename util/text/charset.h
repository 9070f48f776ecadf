#pragma once

#include <string>
#include <string_view>
#include <utility>

// Texts that know their character set. The bytes of the one can't be taken for the other's: only
// the functions of util/text/conversion.h lead from one to the other.

/// How the bytes of a text form characters. In UTF-8, and in anything else whose bytes from 128
/// upwards are never part of an ASCII character, each byte stands for itself; in GBK (and GB18030)
/// the second byte of a character can be the one of a backslash or of a bracket.
enum class Charset { kUtf8, kGbk };

/// A text that somebody else owns. All zero bits are an empty one.
template <Charset>
class TextView {
 public:
  constexpr TextView() = default;
  constexpr explicit TextView(std::string_view text) : content(text) {}

  constexpr std::string_view bytes() const { return content; }
  constexpr bool empty() const { return content.empty(); }

 private:
  std::string_view content;
};

/// A text with its bytes.
template <Charset charset>
class Text {
 public:
  Text() = default;
  explicit Text(std::string text) : content(std::move(text)) {}
  Text(TextView<charset> text) : content(text.bytes()) {}  // NOLINT: the same, with its bytes
  operator TextView<charset>() const { return TextView<charset>(content); }  // NOLINT: likewise

  const std::string& bytes() const { return content; }
  /// For printf, whose texts are UTF-8 wherever lines are printed.
  const char* c_str() const {
    static_assert(charset == Charset::kUtf8, "convert it, or take its bytes");
    return content.c_str();
  }
  bool empty() const { return content.empty(); }

 private:
  std::string content;
};

/// A printf format in GBK; see format_gbk.
struct GbkFormat {
  const char* text;
};

using GbkView = TextView<Charset::kGbk>;
using Gbk = Text<Charset::kGbk>;
using Utf8View = TextView<Charset::kUtf8>;
using Utf8 = Text<Charset::kUtf8>;
