#pragma once

#include <cjson/cJSON.h>

#include <memory>

struct CjsonDeleter {
  void operator()(cJSON* node) const { cJSON_Delete(node); }
};

/// Owner of a cJSON tree, for those who need more of a document than CJsonObject gives. Its users
/// link cJSON.
using Json = std::unique_ptr<cJSON, CjsonDeleter>;
