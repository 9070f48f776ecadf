#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct cJSON;

struct CjsonDeleter {
  void operator()(cJSON* node) const;
};

namespace neb {

/// One JSON document: keyed access to the members of a top-level object, and its compact text.
///
/// Keys and texts are byte strings of any encoding and pass through unchanged. Keys are compared
/// without regard to the case of ASCII letters; the first matching member in document order is
/// meant. No operation throws on bad input: each reports through its result, and lasterror() says
/// why. A plain value without shared state; not thread-safe.
class CJsonObject {
 public:
  CJsonObject() = default;
  /// The document of `text`; empty when the text does not parse.
  explicit CJsonObject(const std::string& text) { Parse(text); }
  virtual ~CJsonObject() = default;
  CJsonObject(const CJsonObject&) = delete;
  CJsonObject& operator=(const CJsonObject&) = delete;

  /// Replaces the document by that of `text` (up to its first NUL). Bytes after the first complete
  /// value are ignored. On failure the document is empty and the result false.
  bool Parse(const std::string& text);
  void Clear();

  /// Sets `value` to the text of the string member `key`. False, with `value` untouched, when
  /// there is no such member or it is not a string.
  bool Get(const std::string& key, std::string& value) const;
  /// Sets `value` to the number member `key`: the low 32 bits of an integer, or a number with a
  /// fraction cut toward zero (and to the range of an int). False, with `value` untouched,
  /// otherwise.
  bool Get(const std::string& key, std::int32_t& value) const;

  /// Appends the string member `key`; an empty document becomes an object first. False when the
  /// document is not an object or has a member `key` already.
  bool Add(const std::string& key, const std::string& value);
  /// Removes the first member `key`. False only when the document is no object.
  bool Delete(const std::string& key);

  /// The document without white space between tokens, or "" when it is empty. Integers keep all
  /// their digits; other numbers have six digits after the point.
  std::string ToString() const;

  /// Description of the last failure.
  const std::string& GetErrMsg() const { return lasterror; }

 private:
  cJSON* find(const std::string& key) const;
  bool is_object();

  std::unique_ptr<cJSON, CjsonDeleter> root;
  std::string lasterror;
};

}  // namespace neb
