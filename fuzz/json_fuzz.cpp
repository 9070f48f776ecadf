// The JSON document: what it prints parses and prints the same again, before and after edits.
// Input: key NUL value NUL document.

#include <string>

#include "fuzz/input.h"
#include "util/json_object.h"

namespace {

/// The print of the document, parsed again into `again`.
std::string require_stable(const neb::CJsonObject& json, neb::CJsonObject& again) {
  std::string print = json.ToString();
  require(again.Parse(print), "the print parses");
  require(again.ToString() == print, "the print's document prints the same");
  return print;
}

void require_removed(neb::CJsonObject& json, const std::string& key, const std::string& without) {
  require(json.Delete(key), "an object's member can be removed");
  require(json.ToString() == without, "removing what was added gives the old document");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::string key = input.text();
  const std::string value = input.text();
  neb::CJsonObject json;
  neb::CJsonObject again;
  const bool parsed = json.Parse(input.rest());
  const std::string print = parsed ? require_stable(json, again) : json.ToString();
  require(parsed != print.empty(), "only an empty document prints nothing");
  const bool object = !parsed || print[0] == '{';

  std::string text;
  std::int32_t number = 0;
  const bool has_text = json.Get(key, text);
  const bool has_number = json.Get(key, number);
  require(!has_text || !has_number, "a member has one kind");
  if (json.Add(key, value)) {
    require(object && !has_text && !has_number, "only a new member is added");
    require_stable(json, again);
    require(again.Get(key, text) && text == value, "an added text stays as it is");
    require_removed(json, key, parsed ? print : "{}");
    return 0;
  }
  require(json.ToString() == print, "a refused member changes nothing");
  require(json.Delete(key) == object, "members of objects are removed");
  require_stable(json, again);
  return 0;
}
