#include "server/refusal_log.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

#include "util/log/log.h"
#include "util/log/repeat_limit.h"
#include "util/text/conversion.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kShownSize = 100;
constexpr char kLine[] = "refused: %s \"%s\": %s\n";

struct Line {
  std::string subject;
  Clock::time_point time;
};

/// The lines of the last second: the log writes no more of one format in any second, and a second
/// of this clock touches two of the log's.
std::array<Line, std::size_t{2} * RepeatLimit::kLinesASecond> last_lines;

}  // namespace

void log_refusal(const char* whose, std::string_view name, const char* why) {
  const std::string_view beginning = name.substr(0, kShownSize);
  std::string subject = std::string(whose).append(" ").append(beginning);
  const Clock::time_point now = Clock::now();
  const bool repeated = std::any_of(last_lines.begin(), last_lines.end(), [&](const Line& line) {
    return line.subject == subject && now - line.time < std::chrono::seconds(1);
  });
  if (repeated || !log_admits(LogLevel::kWarning, kLine)) return;
  log_admitted(LogLevel::kWarning, kLine, whose, shown(beginning).c_str(), why);
  const auto oldest =
      std::min_element(last_lines.begin(), last_lines.end(),
                       [](const Line& left, const Line& right) { return left.time < right.time; });
  *oldest = {std::move(subject), now};
}
