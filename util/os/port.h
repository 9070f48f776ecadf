#pragma once

/// The highest number of a TCP port; the lowest that a service can have is 1.
inline constexpr int kHighestPort = 65535;
