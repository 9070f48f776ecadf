#include "bench/soak/helpers.h"

#include <csignal>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tests/support/child_process.h"
#include "tests/support/eventually.h"

void Helpers::kill_one(std::size_t choice, bool successor_too,
                       const std::function<void()>& wait_until_well) {
  const std::lock_guard<std::mutex> lock(turn);
  const std::set<pid_t> before = children_of(service);
  if (before.size() != count)
    throw std::runtime_error("there are " + std::to_string(before.size()) + " helper processes");
  ++moment;
  const auto victim = std::next(before.begin(), static_cast<std::ptrdiff_t>(choice % count));
  kill(*victim, SIGKILL);
  const auto kill_successor = [&] {
    for (const pid_t helper : children_of(service))
      if (before.count(helper) == 0) return kill(helper, SIGKILL) == 0;
    return false;
  };
  if (successor_too && !eventually(kill_successor))
    throw std::runtime_error("a helper process that was killed is not started anew");
  wait_until_well();
  ++moment;
}
