#pragma once

#include "config/service_ini.h"

/// [LOG] charset of the service INI file: from now on the log is in that character set. Names a
/// value in the log that is none. To be called before anything else is said of the file.
void take_log_charset(const ServiceIni& ini);

const KnownKeys& log_charset_keys();
