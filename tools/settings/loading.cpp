#include "tools/settings/loading.h"

#include "libs/funlib.h"
#include "util/json/json_object.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

/// The reason why the library was not loaded; empty when it was.
Gbk load(Funlib& binding) {
  try {
    char reason[QUORVEL_ERROR_SIZE] = {};
    return Gbk(binding.init(reason) ? "" : reason);
  } catch (...) {
    return current_exception_text(messages::kException, GbkView("an exception"));
  }
}

}  // namespace

std::string loading_as_json(const char* path) {
  Funlib binding(path);
  const Gbk reason = load(binding);
  neb::CJsonObject json;
  if (reason.empty())
    json.Add("functions", shown(GbkView(binding.functions())).bytes());
  else
    json.Add("error", shown(reason).bytes());
  return json.ToString();
}
