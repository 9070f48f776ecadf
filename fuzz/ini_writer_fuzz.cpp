// The INI value writer: lines other than the replaced ones keep their bytes.
// Input: section NUL key NUL value NUL file.

#include <string>
#include <string_view>
#include <vector>

#include "Services/dispatcher/ini_writer.h"
#include "config/ini.h"
#include "fuzz/input.h"
#include "tests/support/memory_file.h"

namespace {

/// The lines of the text, with their line feeds.
std::vector<std::string> split(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    lines.emplace_back(text.substr(0, std::min(text.size(), text.find('\n') + 1)));
    if (lines.back().empty()) lines.back() = text;
    text.remove_prefix(lines.back().size());
  }
  return lines;
}

bool begins_with(const std::string& line, const std::string& prefix) {
  return line.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string section = input.text();
  const std::string key = input.text();
  const std::string value = input.text();
  if ((section + key + value).find_first_of("\r\n") != std::string::npos) return 0;
  // A replaced line that looks like a header can't be told from a header that stayed.
  if ((key + value).find('[') != std::string::npos) return 0;

  const std::string content = input.rest();
  const MemoryFile file(content);
  writeStringVlaue(section.c_str(), key.c_str(), value.c_str(), file.path().c_str());
  const std::vector<std::string> before = split(content);
  const std::vector<std::string> after = split(file.content());
  require(before.size() == after.size(), "no line comes or goes");

  const std::string header = "[" + section + "]";
  const std::string replacement = key + "=" + value + "\n";
  std::string last_header;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const bool of_key = begins_with(before[i], key) && begins_with(last_header, header);
    require(after[i] == (of_key ? replacement : before[i]), "the key's lines change, no others");
    if (!of_key && (is_section_header(before[i]) || begins_with(before[i], header)))
      last_header = before[i];
  }
  return 0;
}
