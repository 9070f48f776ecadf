#pragma once

/// A text, or room for one, as interfaces that count in unsigned bytes take it.
inline const unsigned char* as_bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}
inline unsigned char* as_bytes(char* text) { return reinterpret_cast<unsigned char*>(text); }
