#include "tools/libcheck/function_names.h"

#include <algorithm>

#include "Services/dispatcher/dispatcher.h"
#include "libs/function_list.h"
#include "libs/funlib.h"
#include "tools/libcheck/text.h"
#include "util/language/language.h"
#include "util/text/ascii.h"
#include "util/text/format.h"
#include "util/text/hex.h"

namespace {

constexpr char kListName[] = "function list";

Finding warning(const std::string& text, const std::string& cure) {
  return {Level::warning, kListName, text, cure};
}

void judge_name(const std::string& name, const FunctionList& list, std::vector<Finding>& out) {
  const std::string quoted = "\"" + readable(name) + "\"";
  if (Jdispatcher::is_own_function(name))
    out.push_back(warning(
        format_text(translated("%s never arrives: the service answers it itself"), quoted.c_str()),
        translated("Choose another name.")));
  if (name != ascii_lower(name))
    out.push_back(warning(
        format_text(translated("%s can't be requested: the service lowers the name it looks for"),
                    quoted.c_str()),
        translated("Write the list in lower case.")));
  if (name.size() > kLongestName)
    out.push_back(
        warning(format_text(translated("%s can't be requested: a name has at most %zu bytes"),
                            quoted.c_str(), std::size_t{kLongestName}),
                translated("Choose a shorter name.")));
  for (const std::string& other : list.names)
    if (other.size() > name.size() && other.find(name) != std::string::npos)
      out.push_back(warning(
          format_text(translated("%s is part of \"%s\""), quoted.c_str(), readable(other).c_str()),
          translated("Choose names that are not part of each other: another library may "
                     "declare only one of them and get both.")));
}

}  // namespace

FunctionList make_function_list(const std::string& path, std::string_view answer) {
  std::string text = decode_function_list(answer, kFunctionListSize - 1);
  text.resize(std::min(text.find('\0'), text.size()));
  std::vector<std::string> names = function_names(text);
  return {path, std::move(text), std::move(names)};
}

std::vector<Finding> judge_function_list(std::string_view answer, const FunctionList& list) {
  std::vector<Finding> out;
  const std::size_t digits_from = answer.find_last_not_of(kHexDigits) + 1;  // npos + 1 is 0
  if (digits_from > 0)
    out.push_back(
        {Level::failure, kListName,
         format_text(translated("\"%s\" is no hexadecimal digit: what stands before it is lost"),
                     readable(answer.substr(digits_from - 1, 1)).c_str()),
         translated("Write two of 0-9, a-f, A-F for each byte of the list.")});
  if (answer.size() % 2 != 0)
    out.push_back(
        {Level::failure, kListName,
         translated("it has an odd number of digits, so that the first byte gets only one"),
         translated("Write two digits for each byte, with a leading 0 where needed.")});
  if (list.names.empty())
    out.push_back(
        {Level::failure, kListName, translated("it names no function"),
         translated("Name what the library serves, in lower case, separated by line feeds.")});
  else if (list.text.size() < answer.size() / 2)
    out.push_back(warning(translated("it holds a zero byte, where the service stops to search"),
                          translated("Separate the names with line feeds.")));
  for (const std::string& name : list.names) judge_name(name, list, out);
  return out;
}

std::vector<Finding> judge_overlap(const FunctionList& ours, const FunctionList& other) {
  std::vector<std::string> shared;
  for (const std::string& name : ours.names)
    if (other.text.find(name) != std::string::npos) shared.push_back(name);
  for (const std::string& name : other.names)
    if (ours.text.find(name) != std::string::npos) shared.push_back(name);
  std::sort(shared.begin(), shared.end());
  shared.erase(std::unique(shared.begin(), shared.end()), shared.end());

  const std::string& asked = std::min(ours.path, other.path);
  std::vector<Finding> out;
  out.reserve(shared.size());
  for (const std::string& name : shared)
    out.push_back(
        {Level::warning, "overlap",
         format_text(
             translated("\"%s\" occurs in both lists; the service asks %s, whose path comes first"),
             readable(name).c_str(), readable_request(asked).c_str()),
         translated("Rename the function, or list only one of the two libraries.")});
  return out;
}
