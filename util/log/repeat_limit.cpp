#include "util/log/repeat_limit.h"

RepeatLimit::Kind& RepeatLimit::slot(const char* kind) {
  for (Kind& known : kinds) {
    if (known.name == nullptr) known.name = kind;
    if (known.name == kind) return known;
  }
  return kinds.back();
}

bool RepeatLimit::admit(const char* kind, std::int64_t second) {
  Kind& line = slot(kind);
  if (line.second != second) {
    line.second = second;
    line.lines = 0;
  }
  if (++line.lines <= kLinesASecond) return true;
  ++line.surplus;
  return false;
}

RepeatLimit::Surplus RepeatLimit::take_surplus(std::int64_t second) {
  for (Kind& line : kinds) {
    if (line.surplus == 0 || line.second == second) continue;
    const Surplus surplus{line.name, line.surplus};
    line.surplus = 0;
    return surplus;
  }
  return {nullptr, 0};
}
