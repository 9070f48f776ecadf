#include "tools/settings/loading.h"

#include "libs/funlib.h"
#include "util/json/json_object.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

std::string utf8(const std::string& text) {
  std::string converted;
  library_text_to_utf8(text, converted);
  return converted;
}

/// The reason why the library was not loaded (GBK); empty when it was.
std::string load(Funlib& binding) {
  try {
    char reason[QUORVEL_ERROR_SIZE] = {};
    return binding.init(reason) ? "" : reason;
  } catch (...) {
    return current_exception_text(messages::kException, "an exception");
  }
}

}  // namespace

std::string loading_as_json(const char* path) {
  Funlib binding(path);
  const std::string reason = load(binding);
  neb::CJsonObject json;
  if (reason.empty())
    json.Add("functions", utf8(binding.functions()));
  else
    json.Add("error", utf8(reason));
  return json.ToString();
}
