#pragma once

#include "config/service_ini.h"

/// [SERVER] localport of the service INI file: the TCP port to listen on, or 0 when the file names
/// none that can be used; the log then says why, with the cure.
int read_port(const ServiceIni& ini);

const KnownKeys& port_keys();
