#pragma once

#include <array>
#include <cstdint>

/// Bounds how often lines of one kind are written: the first kLinesASecond of each second, so that
/// no client can fill a log. What was left out is counted.
class RepeatLimit {
 public:
  static constexpr unsigned kLinesASecond = 20;

  /// Lines of one kind that were left out.
  struct Surplus {
    const char* kind;
    unsigned lines;
  };

  /// Whether a line of this kind, told apart by its address, may be written in this second; counts
  /// it either way. Kinds beyond those that there is room for share one count.
  bool admit(const char* kind, std::int64_t second);

  /// Takes the count of a kind whose lines were left out in an earlier second; kind null when there
  /// is none (any more).
  Surplus take_surplus(std::int64_t second);

 private:
  struct Kind {
    const char* name = nullptr;
    std::int64_t second = 0;
    unsigned lines = 0;
    unsigned surplus = 0;
  };

  Kind& slot(const char* kind);

  std::array<Kind, 64> kinds;
};
