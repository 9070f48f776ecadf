#include "tools/libcheck/line_reader.h"

#include <unistd.h>

#include <array>

#include "Services/dispatcher/command.h"
#include "tools/libcheck/interrupt.h"

std::optional<std::string> LineReader::next() {
  std::string line;
  for (;;) {
    const std::size_t end = pending.find('\n');
    line += pending.substr(0, end);
    if (line.size() > kLongestRequest) line.resize(kLongestRequest + 1);
    if (end != std::string::npos) {
      pending.erase(0, end + 1);
      return line;
    }
    pending.clear();
    if (!fill()) break;
  }
  if (line.empty()) return {};
  return line;
}

bool LineReader::fill() {
  if (ended) return false;
  wait_readable(STDIN_FILENO, std::chrono::milliseconds(-1));
  std::array<char, 4096> bytes;
  const ssize_t size = read(STDIN_FILENO, bytes.data(), bytes.size());
  ended = size <= 0;
  if (!ended) pending.assign(bytes.data(), static_cast<std::size_t>(size));
  return !ended;
}
