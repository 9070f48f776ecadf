#pragma once

#include <chrono>
#include <thread>

/// So long that it only ends what hangs.
inline constexpr std::chrono::seconds kPatience(60);

/// Asks again and again, with pauses, until the condition holds. False when the limit has passed.
template <typename Condition>
bool eventually(Condition holds, std::chrono::seconds limit = kPatience,
                std::chrono::microseconds pause = std::chrono::milliseconds(1)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}
