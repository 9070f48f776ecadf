// The JSON document, against cJSON's reading of the same text; what it prints parses and prints the
// same again, before and after edits.
// Input: charset of the document, one byte; key NUL value NUL document.

#include <string>

#include "fuzz/client_view.h"
#include "fuzz/input.h"
#include "util/json/json_object.h"
#include "util/text/ascii.h"

namespace {

/// The print of the document, parsed again into `again`.
std::string require_stable(const neb::CJsonObject& json, neb::CJsonObject& again) {
  const std::string& print = json.ToString();
  require(again.Parse(print), "the print parses");
  require(again.ToString() == print, "the print's document prints the same");
  return print;
}

void require_removed(neb::CJsonObject& json, const std::string& key, const std::string& without) {
  require(json.Delete(key), "an object's member can be removed");
  require(json.ToString() == without, "removing what was added gives the old document");
}

/// cJSON reads no more than 63 bytes of a number.
bool has_long_number(const std::string& json) {
  std::size_t length = 0;
  for (const char c : json) {
    length = is_digit(c) || c == '.' ? length + 1 : 0;
    if (length > 60) return true;
  }
  return false;
}

/// What cJSON takes, the document takes too, and its print says the same to cJSON. Left out: a byte
/// order mark, which only cJSON passes over, numbers that it takes beyond the range of a double or
/// without a digit in front, escapes that stand for no character, and nesting at the very limit.
void require_as_cjson_reads(const std::string& source, const std::string& print) {
  const Json reference(cJSON_Parse(source.c_str()));
  const bool special = source.compare(0, 3, "\xEF\xBB\xBF") == 0 || !has_whole_escapes(source) ||
                       source.find("\\u") != std::string::npos;
  if (reference && !special && print.empty())
    require(source.find_first_of("eE.") != std::string::npos, "what cJSON reads is read");
  if (print.empty() || has_long_number(print)) return;
  const Json printed(cJSON_ParseWithOpts(print.c_str(), nullptr, 1));
  require(printed != nullptr, "the print is JSON to cJSON");
  if (reference && !special && !has_long_number(source))
    require(same_texts(reference.get(), printed.get()), "the print says what cJSON has read");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Charset charset = input.byte() % 2 == 0 ? Charset::kUtf8 : Charset::kGbk;
  const std::string key = input.text();
  const std::string value = input.text();
  const std::string source = input.rest();
  neb::CJsonObject json(charset);
  neb::CJsonObject again(charset);
  const bool parsed = json.Parse(source);
  const std::string print = parsed ? require_stable(json, again) : json.ToString();
  require(parsed != print.empty(), "only an empty document prints nothing");
  if (charset == Charset::kUtf8) require_as_cjson_reads(source, print);
  const bool object = !parsed || print[0] == '{';

  std::string text;
  std::int32_t number = 0;
  const bool has_text = json.Get(key, text);
  const bool has_number = json.Get(key, number);
  require(!has_text || !has_number, "a member has one kind");
  if (json.Add(key, value)) {
    require(object && !has_text && !has_number, "only a new member is added");
    require_stable(json, again);
    if (charset == Charset::kGbk) return 0;  // where a text that is no GBK does not stay as it is
    require(again.Get(key, text) && text == value, "an added text stays as it is");
    require_removed(json, key, parsed ? print : "{}");
    return 0;
  }
  require(json.ToString() == print, "a refused member changes nothing");
  require(json.Delete(key) == object, "members of objects are removed");
  require_stable(json, again);
  return 0;
}
