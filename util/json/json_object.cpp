#include "util/json/json_object.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "util/text/ascii.h"

namespace neb {
namespace {

/// A value's place is behind the key's closing quotation mark and a colon.
constexpr std::size_t kBetween = 2;

bool same_key(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(),
                    [](char a, char b) { return a == b || ascii_lower(a) == ascii_lower(b); });
}

/// The low 32 bits of a printed integer, of whatever length.
std::int32_t low_bits(std::string_view integer) {
  std::uint32_t value = 0;
  for (const char c : integer)
    if (is_digit(c)) value = value * 10 + static_cast<std::uint32_t>(c - '0');
  return static_cast<std::int32_t>(integer[0] == '-' ? 0U - value : value);
}

std::int32_t cut_to_int(double number) {
  constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp(number, kLowest, kHighest));
}

}  // namespace

bool CJsonObject::fail(std::string reason) {
  lasterror = std::move(reason);
  return false;
}

bool CJsonObject::require_object() {
  return (!text.empty() && text[0] == '{') || fail("not a json object! json array?");
}

bool CJsonObject::Parse(std::string_view json) {
  Clear();
  json = json.substr(0, json.find('\0'));
  JsonScanner scanner(json, charset);
  if (!scanner.scan())
    return fail("prase json string error at " + std::string(json.substr(scanner.position())));
  text = std::move(scanner.text());
  members = std::move(scanner.members());
  return true;
}

void CJsonObject::Clear() {
  text.clear();
  members.clear();
}

bool CJsonObject::has_key(const JsonMember& member, std::string_view key) const {
  const std::size_t begin = member.key + 1;
  const std::string_view printed(text.data() + begin, member.value - kBetween - begin);
  // Told apart by their length at best: an escape is longer than what it stands for.
  if (printed.size() < key.size()) return false;
  if (printed.find('\\') == std::string_view::npos) return same_key(printed, key);
  return same_key(unescaped(printed, charset), key);
}

CJsonObject::Members::const_iterator CJsonObject::find(std::string_view key) const {
  auto member = members.begin();
  while (member != members.end() && !has_key(*member, key)) ++member;
  return member;
}

std::string_view CJsonObject::value_of(const JsonMember& member) const {
  return std::string_view(text).substr(member.value, member.end - member.value);
}

bool CJsonObject::Get(std::string_view key, std::string& value) const {
  const auto member = find(key);
  if (member == members.end() || text[member->value] != '"') return false;
  const std::string_view quoted = value_of(*member);
  value = unescaped(quoted.substr(1, quoted.size() - 2), charset);
  return true;
}

bool CJsonObject::Get(std::string_view key, std::int32_t& value) const {
  const auto member = find(key);
  if (member == members.end()) return false;
  const std::string_view printed = value_of(*member);
  if (printed[0] != '-' && !is_digit(printed[0])) return false;
  const bool is_integer = printed.find('.') == std::string_view::npos;
  value = is_integer ? low_bits(printed) : cut_to_int(member->number);
  return true;
}

bool CJsonObject::Add(std::string_view key, std::string_view value) {
  if (text.empty()) text = "{}";
  if (!require_object()) return false;
  if (find(key) != members.end()) return fail("key exists!");
  text.pop_back();
  if (!members.empty()) text += ',';
  JsonMember member{text.size(), 0, 0, 0};
  text += '"';
  append_escaped(text, key, charset);
  text += "\":";
  member.value = text.size();
  text += '"';
  append_escaped(text, value, charset);
  text += '"';
  member.end = text.size();
  text += '}';
  members.push_back(member);
  return true;
}

bool CJsonObject::Delete(std::string_view key) {
  if (text.empty()) return fail("json data is null!");
  if (!require_object()) return false;
  const auto found = find(key);
  if (found == members.end()) return true;
  // With the comma before it, or behind it when it is the first of several.
  const bool is_first = found == members.begin();
  const std::size_t begin = found->key - (is_first ? 0 : 1);
  const std::size_t end = found->end + (is_first && members.size() > 1 ? 1 : 0);
  const std::size_t removed = end - begin;
  text.erase(begin, removed);
  for (auto later = members.erase(found); later != members.end(); ++later) {
    later->key -= removed;
    later->value -= removed;
    later->end -= removed;
  }
  return true;
}

}  // namespace neb
