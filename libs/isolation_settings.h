#pragma once

#include <chrono>
#include <map>
#include <string>

#include "config/service_ini.h"

/// The section [ISOLATED] of the service INI file: for the key of each library that is to run in a
/// helper process ("lib1" and so on), the time that a call may take. What is written wrongly there
/// is named in the log, with the cure; it never makes a library run inside the service.
using Isolation = std::map<std::string, std::chrono::seconds>;
Isolation read_isolation(const ServiceIni& ini);

const KnownKeys& isolation_keys();
