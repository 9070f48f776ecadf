#pragma once

#include <cerrno>
#include <system_error>

/// The result of a system call, which is negative when the call has failed and set errno. Throws
/// std::system_error with `what` then.
template <typename Result>
Result checked(Result result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}
