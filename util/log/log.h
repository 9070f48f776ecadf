#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "util/text/charset.h"

/// The one way on which the service prints. Lines go to standard error, with the time and the
/// level's letter in front, or bare to standard output; neither ever holds up the service (see
/// Output). Formats are printf's, and their texts, like their arguments, are UTF-8: what is GBK, or
/// of an unknown character set, is given as shown() makes it. A format may begin and end with line
/// feeds. Whatever the arguments hold, no control character of theirs is
/// printed, no line is longer than kLongestLine bytes, and lines of one format that repeat faster
/// than RepeatLimit allows are counted and not written.
///
/// Everything is meant for the service's one thread.

inline constexpr std::size_t kLongestLine = 1000;

/// Levels are bits of the mask that "-d" sets; their values are part of the command line.
enum class LogLevel : unsigned {
  kError = 1U << 0,
  kWarning = 1U << 1,
  kNotice = 1U << 2,
  kUser = 1U << 10,  ///< the service's progress
};

[[gnu::format(printf, 1, 2)]] void log_error(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void log_warning(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void log_user(const char* format, ...);
/// A line that is shown whenever errors are, but tells of none.
[[gnu::format(printf, 1, 2)]] void log_milestone(const char* format, ...);
/// To standard error, whatever levels are shown, without time and level.
[[gnu::format(printf, 1, 2)]] void log_bare_error(const char* format, ...);
/// To standard output.
[[gnu::format(printf, 1, 2)]] void print(const char* format, ...);
/// A line of the service's own texts to standard output; `format` is the one that it is made of.
void print_line(GbkFormat format, const Gbk& line);

/// For a line whose arguments are costly: whether one of this format is to be written now. The line
/// is then written with log_admitted, and only then.
bool log_admits(LogLevel level, const char* format);
[[gnu::format(printf, 2, 3)]] void log_admitted(LogLevel level, const char* format, ...);

/// A finished line of another component, with the bit of its level. Lines of one level count as of
/// one kind; those of the debugging levels are not limited.
void log_component(unsigned level_bit, std::string_view line);

/// Sets the mask of the levels to show; at first it holds the four above.
void set_log_levels(unsigned mask);
/// Whether lines are written in UTF-8, or in GBK, as at first. To the journal, which shows nothing
/// else, they always are in UTF-8.
void set_log_charset_utf8(bool utf8);
bool is_log_charset_utf8();

/// Takes a line, in UTF-8 and without line end; `letter` is that of its level, '\0' for print()'s.
using LogSink = std::function<void(char letter, const std::string& line)>;
/// For programs that show elsewhere what the service would log: `sink` gets every line, however
/// often it repeats, in place of the standard streams. `translate` gives the format that is used in
/// place of the one written here.
void set_log_sink(LogSink sink, const char* (*translate)(const char*));

/// Sees to it that printing never blocks. Once, at the start of the service.
void settle_log();
/// Writes how many lines of each kind were left out, and how many found no room. About once a
/// second.
void flush_log();
