#pragma once

#include "access/access_rules.h"
#include "config/service_ini.h"

/// Why a value is no originN of the section [ACCESS], and the cure; English, to be translated.
extern const char* const kNoOrigin;

/// The section [ACCESS] of the service INI file, for a service that listens on `port`. What is
/// written wrongly there is named in the log, with the cure, and never opens what it may have been
/// meant to close.
AccessRules read_access(const ServiceIni& ini, int port);

const KnownKeys& access_keys();
inline constexpr char kAccessSection[] = "ACCESS";
inline constexpr char kOriginKey[] = "origin";
