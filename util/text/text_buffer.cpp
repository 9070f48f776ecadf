#include "util/text/text_buffer.h"

#include <cstring>

#include "util/text/gbk.h"

bool copy_text(TextBuffer out, std::string_view text) {
  if (text.size() >= out.size) return false;
  std::memcpy(out.data, text.data(), text.size());
  out.data[text.size()] = '\0';
  return true;
}

bool fail_with(TextBuffer out, GbkView text) {
  if (out.size > 0) copy_text(out, clean_gbk(text.bytes(), out.size - 1));
  return false;
}
