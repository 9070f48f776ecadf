#include "util/json/json_text.h"

#include <algorithm>

#include "util/text/ascii.h"
#include "util/text/format.h"
#include "util/text/gbk.h"

namespace {

constexpr std::string_view kLetters = "bfnrt";
constexpr std::string_view kControls = "\b\f\n\r\t";

/// Stands for a byte of a GBK text that begins no character: left as it is, it would form one with
/// a backslash that is printed behind it.
constexpr std::string_view kStrayByte = "\\ufffd";

bool needs_escape(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; }

void append_escape(std::string& out, char c) {
  const std::size_t control = kControls.find(c);
  out += '\\';
  if (control != std::string_view::npos) {
    out += kLetters[control];
  } else if (static_cast<unsigned char>(c) < 0x20) {
    out += format_text("u%04x", static_cast<unsigned>(c));
  } else {
    out += c;
  }
}

}  // namespace

std::size_t char_length(std::string_view text, Charset charset) {
  if (charset == Charset::kUtf8) return 1;
  return std::max<std::size_t>(gbk_char_length(text), 1);
}

void append_escaped(std::string& out, std::string_view text, Charset charset) {
  while (!text.empty()) {
    const std::size_t length = char_length(text, charset);
    if (length == 1 && needs_escape(text[0])) {
      append_escape(out, text[0]);
    } else if (charset == Charset::kGbk && gbk_char_length(text) == 0) {
      out += kStrayByte;
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
}

std::string unescaped(std::string_view content, Charset charset) {
  std::string text;
  while (!content.empty()) {
    std::size_t length = char_length(content, charset);
    if (content[0] != '\\' || content.size() < 2) {
      text += content.substr(0, length);
    } else if (const std::int32_t code = content[1] == 'u' ? hex4(content, 2) : -1;
               code >= 0 && code < 0x80) {
      text += static_cast<char>(code);
      length = 6;
    } else {
      const std::size_t control = kLetters.find(content[1]);
      text += control != std::string_view::npos ? kControls[control] : content[1];
      length = 2;
    }
    content.remove_prefix(length);
  }
  return text;
}
