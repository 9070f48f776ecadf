#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <new>
#include <string>

struct CjsonDeleter {
  void operator()(cJSON* node) const { cJSON_Delete(node); }
};

/// Owner of a cJSON tree, for those who need more of a document than CJsonObject gives. Its users
/// link cJSON.
using Json = std::unique_ptr<cJSON, CjsonDeleter>;

/// What cJSON returns, a null pointer being a lack of memory. Throws std::bad_alloc, as all below.
template <class Value>
Value* checked(Value* value) {
  if (value == nullptr) throw std::bad_alloc();
  return value;
}

/// An object without members, and a text (UTF-8) put into one.
inline Json new_object() { return Json(checked(cJSON_CreateObject())); }
inline void add_text(cJSON* object, const char* name, const std::string& text) {
  checked(cJSON_AddStringToObject(object, name, text.c_str()));
}

/// A text that cJSON has printed, which is freed.
inline std::string take_text(char* printed) {
  return std::unique_ptr<char, decltype(&cJSON_free)>(checked(printed), cJSON_free).get();
}

/// The tree as a text, compact or indented for people; empty for a null pointer.
inline std::string compact_json(const cJSON* tree) {
  return tree == nullptr ? "" : take_text(cJSON_PrintUnformatted(tree));
}
inline std::string indented_json(const cJSON* tree) {
  return tree == nullptr ? "" : take_text(cJSON_Print(tree));
}
