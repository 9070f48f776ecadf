#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "util/json/json_scanner.h"

namespace neb {

/// One JSON document: keyed access to the members of a top-level object, and its compact text,
/// which is all that is kept of it.
///
/// Keys and texts are byte strings of any encoding and pass through unchanged. Keys are compared
/// without regard to the case of ASCII letters; the first matching member in document order is
/// meant. No operation throws on bad input: each reports through its result, and GetErrMsg() says
/// why. A plain value without shared state; not thread-safe.
class CJsonObject {
 public:
  /// An empty document. `bytes` tells how the texts that will be parsed or added are encoded.
  explicit CJsonObject(Charset bytes = Charset::kUtf8) : charset(bytes) {}
  /// The document of `json`; empty when it does not parse.
  explicit CJsonObject(std::string_view json, Charset bytes = Charset::kUtf8) : charset(bytes) {
    Parse(json);
  }
  virtual ~CJsonObject() = default;
  CJsonObject(const CJsonObject&) = delete;
  CJsonObject& operator=(const CJsonObject&) = delete;

  /// Replaces the document by that of `json` (up to its first NUL). Bytes after the first complete
  /// value are ignored. On failure the document is empty and the result false.
  bool Parse(std::string_view json);
  void Clear();

  /// Sets `value` to the text of the string member `key`. False, with `value` untouched, when
  /// there is no such member or it is not a string.
  bool Get(std::string_view key, std::string& value) const;
  /// Sets `value` to the number member `key`: the low 32 bits of an integer, or a number with a
  /// fraction cut toward zero (and to the range of an int). False, with `value` untouched,
  /// otherwise.
  bool Get(std::string_view key, std::int32_t& value) const;

  /// Appends the string member `key`; an empty document becomes an object first. False when the
  /// document is not an object or has a member `key` already.
  bool Add(std::string_view key, std::string_view value);
  /// Removes the first member `key`. False only when the document is no object.
  bool Delete(std::string_view key);

  /// The document without white space between tokens, or "" when it is empty. Integers keep all
  /// their digits; other numbers have six digits after the point. Valid until the document changes.
  const std::string& ToString() const { return text; }

  /// Description of the last failure.
  const std::string& GetErrMsg() const { return lasterror; }

 private:
  using Members = std::vector<JsonMember>;

  bool fail(std::string reason);
  bool require_object();
  bool has_key(const JsonMember& member, std::string_view key) const;
  Members::const_iterator find(std::string_view key) const;
  std::string_view value_of(const JsonMember& member) const;

  Charset charset;
  std::string text;
  Members members;  ///< of the object that `text` is, in its order
  std::string lasterror;
};

}  // namespace neb
