#pragma once

#include <string>

#include "access/access_rules.h"
#include "config/known_keys.h"
#include "libs/listing.h"

/// What the service INI file says, for those who go by it.
struct ServiceSettings {
  int port = 0;  ///< to listen on; 0: none that can be used
  AccessRules access;
  Listing libraries;
};

/// Reads quorvel_service.ini beside the program, or the file at `path`, takes the log's character
/// set from it, and says in the log what is wrong with it.
ServiceSettings read_service_settings();
ServiceSettings read_service_settings(const std::string& path);

/// Every key that the file may hold.
KnownKeys service_keys();
