#include "config/known_keys.h"

#include <algorithm>
#include <set>
#include <utility>

#include "util/language/language.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/format.h"

namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Marks[] = {"\xFF\xFE", "\xFE\xFF"};

bool is_known_section(const KnownKeys& keys, std::string_view section) {
  return std::any_of(keys.begin(), keys.end(),
                     [&](const KnownKey& known) { return section == known.section; });
}

/// Why the key has no effect in its section; empty when it is known.
std::string fault_of_key(const IniLine& line, const KnownKeys& keys) {
  std::string fault = translated("there is no such key");
  for (const KnownKey& known : keys) {
    if (known.is(line.key) && line.section == known.section) return {};
    const std::string name = plain_name(known.key);
    if (known.key.empty() || !KnownKey{known.section, name, known.numbers}.is(plain_name(line.key)))
      continue;
    const std::string number = plain_name(line.key).substr(name.size());
    fault =
        format_text(translated("there is no such key: write %s=... without blanks under [%s]"),
                    (std::string(known.key) + number).c_str(), std::string(known.section).c_str());
  }
  return fault;
}

std::string fault_of_line(const IniLine& line, bool repeated, const KnownKeys& keys) {
  if (line.opens_section) {
    if (repeated) return translated("the section occurs again: its lines above do not count");
    if (is_known_section(keys, line.section)) return {};
    return translated("there is no such section: what follows it is skipped");
  }
  if (line.key.empty()) return translated("it is neither a section nor a key=value");
  if (!is_known_section(keys, line.section))
    return line.section.empty() ? translated("it stands in no section") : "";
  std::string fault = fault_of_key(line, keys);
  if (!fault.empty() || !repeated) return fault;
  return translated("the key occurs again: its line above does not count");
}

bool begins_with(std::string_view text, std::string_view mark) {
  return text.substr(0, mark.size()) == mark;
}

/// False when no line can be understood.
bool has_usable_charset(const std::string& path, const IniLine& first) {
  if (begins_with(first.text, kUtf8Mark))
    log_warning("%s begins with a byte-order mark, which spoils its first line: save it without\n",
                shown(path).c_str());
  if (std::none_of(std::begin(kUtf16Marks), std::end(kUtf16Marks),
                   [&](std::string_view mark) { return begins_with(first.text, mark); }))
    return true;
  log_error("%s is in UTF-16, and nothing of it is understood: save it in GBK or UTF-8\n",
            shown(path).c_str());
  return false;
}

}  // namespace

bool KnownKey::is(std::string_view name) const {
  if (numbers == 0) return name == key || key.empty();
  for (int number = 1; number <= numbers; ++number)
    if (name == std::string(key) + std::to_string(number)) return true;
  return false;
}

std::string plain_name(std::string_view name) {
  const std::size_t first = name.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return ascii_lower(name.substr(first, name.find_last_not_of(" \t") + 1 - first));
}

KnownKeys together(std::initializer_list<KnownKeys> parts) {
  KnownKeys all;
  for (const KnownKeys& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

bool misses(const IniLine& line, std::string_view section, const KnownKeys& keys) {
  if (line.opens_section)
    return line.section != section && plain_name(line.section) == plain_name(section);
  const bool inside = line.section == section;
  for (const KnownKey& known : keys)
    if (known.section == section && known.is(inside ? line.key : plain_name(line.key)))
      return !inside;
  return inside;
}

void report_lines(const std::string& path, const std::vector<IniLine>& lines,
                  const KnownKeys& keys) {
  if (!lines.empty() && !has_usable_charset(path, lines.front())) return;
  std::set<std::pair<std::string, std::string>> met;
  for (const IniLine& line : lines) {
    const bool repeated = !met.emplace(line.section, line.key).second;
    const std::string fault = fault_of_line(line, repeated, keys);
    if (!fault.empty())
      log_warning("%s: line %d, \"%s\": %s\n", shown(path).c_str(), line.number,
                  shown(line.text).c_str(), fault.c_str());
  }
}
