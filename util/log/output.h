#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Standard output or standard error as a sink of whole lines that never holds up the service. A
/// line for which there is no room at once is dropped and counted; the count is written once there
/// is room again. Used from one thread.
class Output {
 public:
  explicit Output(int standard_descriptor) : descriptor(standard_descriptor) {}

  /// Finds out where the descriptor leads, and opens anew, in its place and without blocking, what
  /// could block: a mode set on the descriptor itself would hold for every process that shares it.
  /// Until then lines are written as they come.
  void settle();

  /// Whether the descriptor leads to systemd's journal, which takes priorities in front of lines.
  bool is_journal() const { return journal; }

  /// Writes the line, which holds its own line end.
  void write(std::string_view line);
  /// Writes what waits for room: the end of a line, the count of lost lines. Now and then.
  void flush();

 private:
  /// kGuarded: blocks, and can't be made not to without changing it for others.
  enum class Kind { kPlain, kSocket, kGuarded };

  bool try_write(std::string_view line);
  bool send_rest();
  std::size_t write_some(std::string_view bytes) const;

  const int descriptor;
  Kind kind = Kind::kPlain;
  bool journal = false;
  std::string rest;  ///< of a line that found room for its beginning alone
  unsigned lost_lines = 0;
};
