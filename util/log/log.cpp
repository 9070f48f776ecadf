#include "util/log/log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <exception>
#include <string>
#include <utility>

#include "util/log/output.h"
#include "util/log/repeat_limit.h"
#include "util/text/ascii.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/utf8.h"

namespace {

/// How a level looks: its letter in front of a line, and the priority that journals know.
struct Level {
  unsigned bit;
  char letter;
  int priority;
};
constexpr Level kLevels[] = {
    {1U << 0, 'E', 3}, {1U << 1, 'W', 4}, {1U << 2, 'N', 5}, {1U << 3, 'I', 7}, {1U << 10, 'U', 6}};
constexpr Level kOtherLevel = {0, 'D', 7};
constexpr Level kMilestone = {static_cast<unsigned>(LogLevel::kError), 'E', 5};
constexpr Level kBareError = {0, '\0', 3};
constexpr Level kPlain = {0, '\0', 6};

constexpr unsigned kLimitedLevels =
    static_cast<unsigned>(LogLevel::kError) | static_cast<unsigned>(LogLevel::kWarning) |
    static_cast<unsigned>(LogLevel::kNotice) | static_cast<unsigned>(LogLevel::kUser);

Output standard_output(STDOUT_FILENO);
Output standard_error(STDERR_FILENO);
RepeatLimit limit;
unsigned shown_levels = kLimitedLevels;
bool in_utf8 = false;
LogSink line_sink;
const char* (*translate_format)(const char*) = nullptr;

Level level_of(unsigned bit) {
  for (const Level& level : kLevels)
    if (level.bit == bit) return level;
  return kOtherLevel;
}

std::int64_t this_second() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec;
}

/// Date, time to 100 microseconds and letter, as libwebsockets itself writes them.
std::string time_and_letter(char letter) {
  timespec now{};
  tm local{};
  clock_gettime(CLOCK_REALTIME, &now);
  localtime_r(&now.tv_sec, &local);
  char date[32];
  const std::size_t length = std::strftime(date, sizeof date, "%Y/%m/%d %H:%M:%S", &local);
  return format_text("[%.*s:%04ld] %c: ", static_cast<int>(length), date, now.tv_nsec / 100000,
                     letter);
}

/// Replaces what could forge a line or steer a terminal: control bytes, and the two bytes that are
/// a control character in UTF-8, whatever they are in GBK.
void disarm(std::string& line) {
  for (std::size_t i = 0; i < line.size(); ++i) {
    const auto next = static_cast<unsigned char>(i + 1 < line.size() ? line[i + 1] : '\0');
    if (line[i] == '\n' || line[i] == '\t') {
      line[i] = ' ';
    } else if (is_control(line[i])) {
      line[i] = '?';
    } else if (line[i] == '\xC2' && next >= 0x80 && next < 0xA0) {
      line[i] = line[i + 1] = '?';
    }
  }
}

/// The line as it is written, without line ends.
std::string finished(std::string_view text, bool to_utf8) {
  std::string line = clean_utf8(text);
  if (line.size() > kLongestLine) line = std::string(cut_utf8(line, kLongestLine)) + "...";
  if (!to_utf8) line = utf8_to_gbk(Utf8View(line)).bytes();
  disarm(line);
  return line;
}

void write_line(Output& output, const Level& level, std::string_view text, bool ends) {
  if (line_sink) {
    line_sink(level.letter, finished(text, true));
    return;
  }
  std::string line;
  while (!output.is_journal() && !text.empty() && text[0] == '\n') {
    line += '\n';
    text.remove_prefix(1);
  }
  if (output.is_journal()) {
    line = format_text("<%d>", level.priority);
  } else if (level.letter != '\0') {
    line += time_and_letter(level.letter);
  }
  line += finished(text, in_utf8 || output.is_journal());
  if (ends || output.is_journal()) line += '\n';
  output.write(line);
}

/// Formats the line; line feeds at its two ends count only where the format itself has them.
void write_formatted(Output& output, const Level& level, const char* format,
                     std::va_list arguments) {
  std::string text;
  try {
    if (translate_format != nullptr) format = translate_format(format);
    text = format_arguments(format, arguments);
    const std::string_view whole = format;
    const bool ends = !whole.empty() && whole.back() == '\n';
    if (ends) text.pop_back();
    const bool begins = !whole.empty() && whole[0] == '\n';
    if (!begins && !text.empty() && text[0] == '\n') text[0] = ' ';
    write_line(output, level, text, ends);
  } catch (const std::exception&) {
    output.write("out of memory for a line\n");
  }
}

bool is_shown(unsigned bit) { return (shown_levels & bit) != 0; }

}  // namespace

bool log_admits(LogLevel level, const char* format) {
  if (line_sink) return true;
  return is_shown(static_cast<unsigned>(level)) && limit.admit(format, this_second());
}

#define WRITE_ARGUMENTS(output, level)                 \
  do {                                                 \
    std::va_list arguments;                            \
    va_start(arguments, format);                       \
    write_formatted(output, level, format, arguments); \
    va_end(arguments);                                 \
  } while (false)

// NOLINTBEGIN(cert-dcl50-cpp): the compiler checks the arguments against the formats

void log_admitted(LogLevel level, const char* format, ...) {
  WRITE_ARGUMENTS(standard_error, level_of(static_cast<unsigned>(level)));
}

void log_error(const char* format, ...) {
  if (log_admits(LogLevel::kError, format))
    WRITE_ARGUMENTS(standard_error, level_of(static_cast<unsigned>(LogLevel::kError)));
}

void log_warning(const char* format, ...) {
  if (log_admits(LogLevel::kWarning, format))
    WRITE_ARGUMENTS(standard_error, level_of(static_cast<unsigned>(LogLevel::kWarning)));
}

void log_user(const char* format, ...) {
  if (log_admits(LogLevel::kUser, format))
    WRITE_ARGUMENTS(standard_error, level_of(static_cast<unsigned>(LogLevel::kUser)));
}

void log_milestone(const char* format, ...) {
  if (log_admits(LogLevel::kError, format)) WRITE_ARGUMENTS(standard_error, kMilestone);
}

void log_bare_error(const char* format, ...) { WRITE_ARGUMENTS(standard_error, kBareError); }

void print(const char* format, ...) {
  if (limit.admit(format, this_second())) WRITE_ARGUMENTS(standard_output, kPlain);
}

// NOLINTEND(cert-dcl50-cpp)

void log_component(unsigned level_bit, std::string_view line) {
  static constexpr char kKinds[32] = {};  // an address for each level
  unsigned index = 0;
  while (index + 1 < sizeof kKinds && (level_bit >> index) != 1) ++index;
  const bool limited = (level_bit & kLimitedLevels) != 0;
  if (limited && !limit.admit(&kKinds[index], this_second())) return;
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  write_line(standard_error, level_of(level_bit), shown(line).bytes(), true);
}

void print_line(GbkFormat format, const Gbk& line) {
  if (!limit.admit(format.text, this_second())) return;
  write_line(standard_output, kPlain, shown(line).bytes(), true);
}

void set_log_levels(unsigned mask) { shown_levels = mask; }

void set_log_charset_utf8(bool utf8) { in_utf8 = utf8; }

bool is_log_charset_utf8() { return in_utf8; }

void set_log_sink(LogSink sink, const char* (*translate)(const char*)) {
  line_sink = std::move(sink);
  translate_format = translate;
}

void settle_log() {
  standard_output.settle();
  standard_error.settle();
}

void flush_log() {
  const std::int64_t now = this_second();
  const bool any_level = shown_levels != 0;
  for (RepeatLimit::Surplus left = limit.take_surplus(now); left.kind != nullptr;
       left = limit.take_surplus(now)) {
    const Utf8 kind = shown(*left.kind != '\0' ? left.kind : "lines of a component");
    if (any_level)
      write_line(standard_error, level_of(static_cast<unsigned>(LogLevel::kNotice)),
                 format_text("%u more: ", left.lines) + kind.bytes(), true);
  }
  standard_output.flush();
  standard_error.flush();
}
