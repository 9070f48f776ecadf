#include "util/json_object.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

#include "util/ascii.h"
#include "util/json_source.h"

void CjsonDeleter::operator()(cJSON* node) const { cJSON_Delete(node); }

namespace neb {
namespace {

using NumberIterator = std::vector<JsonNumber>::const_iterator;

/// Room that a printed document usually fits into without growing.
constexpr int kPrintBufferSize = 512;

/// cJSON's own look-up folds case by the process's locale, which a reader library may have set.
bool same_key(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(),
                    [](char a, char b) { return ascii_lower(a) == ascii_lower(b); });
}

/// Gives the number nodes below `node` the text and values of the source: as raw nodes they print
/// that text, which cJSON's own number nodes would not.
// NOLINTNEXTLINE(misc-no-recursion): cJSON bounds the depth when it parses
void restore_numbers(cJSON* node, NumberIterator& number) {
  for (; node != nullptr; node = node->next) {
    if (cJSON_IsNumber(node)) {
      const std::size_t size = number->print.size() + 1;
      auto* text = static_cast<char*>(cJSON_malloc(size));
      if (text == nullptr) throw std::bad_alloc();
      std::memcpy(text, number->print.c_str(), size);
      node->type = cJSON_Raw;
      node->valuestring = text;
      node->valuedouble = number->value;
      ++number;
    }
    restore_numbers(node->child, number);
  }
}

}  // namespace

bool CJsonObject::Parse(const std::string& text) {
  Clear();
  const std::string_view source = text.c_str();
  JsonSource json(source);
  std::size_t failed_at = 0;
  if (json.rewrite()) {
    const char* end = nullptr;
    root.reset(cJSON_ParseWithLengthOpts(json.text().c_str(), json.text().size() + 1, &end, 0));
    if (root) {
      NumberIterator number = json.numbers().begin();
      restore_numbers(root.get(), number);
      return true;
    }
    if (end != nullptr)
      failed_at = json.source_position(static_cast<std::size_t>(end - json.text().c_str()));
  } else {
    failed_at = json.position();
  }
  lasterror = "prase json string error at ";
  lasterror += source.substr(failed_at);
  return false;
}

void CJsonObject::Clear() { root.reset(); }

cJSON* CJsonObject::find(const std::string& key) const {
  if (!cJSON_IsObject(root.get())) return nullptr;
  cJSON* member = root->child;
  while (member != nullptr && !same_key(member->string, key)) member = member->next;
  return member;
}

bool CJsonObject::is_object() {
  if (cJSON_IsObject(root.get())) return true;
  lasterror = "not a json object! json array?";
  return false;
}

bool CJsonObject::Get(const std::string& key, std::string& value) const {
  const cJSON* member = find(key);
  if (!cJSON_IsString(member)) return false;
  value = member->valuestring;
  return true;
}

bool CJsonObject::Get(const std::string& key, std::int32_t& value) const {
  const cJSON* member = find(key);
  if (!cJSON_IsRaw(member)) return false;
  constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
  value = static_cast<std::int32_t>(std::clamp(member->valuedouble, kLowest, kHighest));
  return true;
}

bool CJsonObject::Add(const std::string& key, const std::string& value) {
  if (!root) root.reset(cJSON_CreateObject());
  if (!root) throw std::bad_alloc();
  if (!is_object()) return false;
  if (find(key) != nullptr) {
    lasterror = "key exists!";
    return false;
  }
  if (cJSON_AddStringToObject(root.get(), key.c_str(), value.c_str()) == nullptr)
    throw std::bad_alloc();
  return true;
}

bool CJsonObject::Delete(const std::string& key) {
  if (!root) {
    lasterror = "json data is null!";
    return false;
  }
  if (!is_object()) return false;
  cJSON_Delete(cJSON_DetachItemViaPointer(root.get(), find(key)));
  return true;
}

std::string CJsonObject::ToString() const {
  if (!root) return {};
  struct Free {
    void operator()(char* text) const { cJSON_free(text); }
  };
  const std::unique_ptr<char, Free> text(cJSON_PrintBuffered(root.get(), kPrintBufferSize, 0));
  if (!text) throw std::bad_alloc();
  return text.get();
}

}  // namespace neb
