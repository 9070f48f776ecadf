#include "server/connection_limit.h"

#include <sys/resource.h>

#include <algorithm>

bool connection_may_have(int descriptor) {
  constexpr rlim_t kLargestReserve = 64;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return true;
  const rlim_t reserve = std::min(limit.rlim_cur / 4, kLargestReserve);
  return static_cast<rlim_t>(descriptor) < limit.rlim_cur - reserve;
}
