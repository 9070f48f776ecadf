// The INI reader, against a search that keeps no more than one value.
// Input: section NUL key NUL size of the caller's buffer, one byte, then the file.

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "config/ini.h"
#include "fuzz/input.h"
#include "tests/support/memory_file.h"

namespace {

constexpr std::size_t kPiece = 255;

/// Takes the next line, or piece of a longer line, off the content; up to its first NUL and
/// without its first line feed, its first carriage return and leading blanks.
std::string next_line(std::string_view& content) {
  const std::string_view piece = content.substr(0, content.substr(0, kPiece).find('\n'));
  std::string line(piece.substr(0, std::min(piece.size(), kPiece)));
  content.remove_prefix(std::min(content.size(), std::min(line.size() + 1, kPiece)));
  line.resize(std::min(line.size(), line.find('\0')));
  if (const std::size_t at = line.find('\r'); at != std::string::npos) line.erase(at, 1);
  return line.erase(0, line.find_first_not_of(" \t"));
}

std::string search(std::string_view content, std::string_view section, std::string_view key) {
  std::string value;
  bool inside = section.empty();
  while (!content.empty()) {
    std::string line = next_line(content);
    const std::size_t open = line.find('[');
    const std::size_t equals = line.find('=');
    if (line[0] == ';') continue;
    if (open != std::string::npos && line.find(']') != std::string::npos) {
      line.erase(open, 1);
      line.erase(line.find(']'), 1);
      inside = line == section;
      if (inside) value.clear();
    } else if (inside && equals != std::string::npos && line.substr(0, equals) == key) {
      value = line.substr(equals + 1);
    }
  }
  return value;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string section = input.text();
  const std::string key = input.text();
  std::vector<char> out(input.byte());
  const std::string content = input.rest();
  const MemoryFile file(content);
  CIni ini;
  require(ini.OpenFile(file.path().c_str(), "r") == 0, "the file opens");
  const std::string value = search(content, section, key);
  require(ini.GetStr(section.c_str(), key.c_str()) == value, "GetStr finds the value");
  require(ini.GetInt(section.c_str(), key.c_str()) ==
              static_cast<int>(std::strtol(value.c_str(), nullptr, 10)),
          "GetInt is its number");
  ini.GetKey(section.c_str(), key.c_str(), out.data(), out.size());
  require(out.empty() || out.data() == (value.size() < out.size() ? value : ""),
          "GetKey copies what fits whole");
  ini.CloseFile();
  require(ini.GetStr(section.c_str(), key.c_str()) == value, "the value stays after closing");
  return 0;
}
