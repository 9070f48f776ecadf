#include "config/ini.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "util/log/log.h"
#include "util/os/regular_file.h"
#include "util/text/conversion.h"
#include "util/text/text_buffer.h"

namespace {

constexpr int kLineSize = 256;

void erase_first(std::string& line, char c) {
  const std::size_t at = line.find(c);
  if (at != std::string::npos) line.erase(at, 1);
}

}  // namespace

bool is_section_header(std::string_view line, bool values_are_addresses) {
  const std::size_t first = line.find_first_not_of(" \t");
  const std::size_t bracket = line.find('[');
  return first != std::string_view::npos && line[first] != ';' &&
         bracket != std::string_view::npos && line.find(']') != std::string_view::npos &&
         !(values_are_addresses && line.find('=') < bracket);
}

int CIni::OpenFile(const char* path, const char* mode) {
  fp = open_regular(path, mode, reason);
  if (!fp) {
    print("open inifile %s error!\n", shown(path).c_str());
    return 2;
  }
  sections.clear();
  read_lines.clear();
  std::string section;
  std::map<std::string, std::string> keys;
  char line[kLineSize];
  int number = 1;
  while (std::fgets(line, sizeof line, fp.get()) != nullptr) {
    parse_line(line, number, section, keys);
    if (std::strchr(line, '\n') != nullptr) ++number;
  }
  sections[section] = std::move(keys);
  return 0;
}

void CIni::parse_line(std::string line, int number, std::string& section,
                      std::map<std::string, std::string>& keys) {
  erase_first(line, '\n');
  erase_first(line, '\r');
  line.erase(0, line.find_first_not_of(" \t"));
  if (line.empty() || line[0] == ';') return;
  const bool has_addresses = !address_section.empty() && section == address_section;
  const bool opens_section = is_section_header(line, has_addresses);
  IniLine& read = read_lines.emplace_back(IniLine{number, section, "", line, opens_section});
  if (opens_section) {
    sections[section] = std::exchange(keys, {});
    erase_first(line, '[');
    erase_first(line, ']');
    section = std::move(line);
    read.section = section;
    return;
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos) return;
  read.key = line.substr(0, equals);
  keys[read.key] = line.substr(equals + 1);
}

int CIni::CloseFile() {
  fp.reset();
  return 0;
}

int CIni::GetKey(const char* section, const char* key, char* out, std::size_t size) const {
  if (size > 0) out[0] = '\0';
  const auto block = sections.find(section);
  if (block == sections.end()) return 0;
  const auto entry = block->second.find(key);
  if (entry != block->second.end()) copy_text({out, size}, entry->second);
  return 0;
}

char* CIni::GetStr(const char* section, const char* key) {
  std::memset(valbuf, 0, sizeof valbuf);
  GetKey(section, key, valbuf, sizeof valbuf);
  return valbuf;
}

int CIni::GetInt(const char* section, const char* key) {
  return static_cast<int>(std::strtol(GetStr(section, key), nullptr, 10));
}

std::vector<std::string> CIni::Keys(const std::string& section) const {
  std::vector<std::string> keys;
  const auto block = sections.find(section);
  if (block == sections.end()) return keys;
  for (const auto& entry : block->second) keys.push_back(entry.first);
  return keys;
}

void CIni::PutStr(const char* section, const char* key, const char* value) {
  if (fp) std::fprintf(fp.get(), "[%s]\n%s=%s\n", section, key, value);
}
