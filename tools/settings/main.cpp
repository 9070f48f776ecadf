// Tells quorvel-doctor and quorvel-policy, in one JSON object on standard output, what the service
// makes of its settings, of one library, of [ACCESS] in a file, or of the addresses of sites:
//   quorvel-settings [OPTION-OF-THE-SERVICE]...
//   quorvel-settings --load LIBRARY
//   quorvel-settings --access FILE
//   quorvel-settings --sites TEXT...    ends with 1 if one of them is no site

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "tools/settings/loading.h"
#include "tools/settings/reading.h"
#include "tools/settings/sites.h"
#include "util/handle/unique_fd.h"
#include "util/language/language.h"

namespace {

/// Standard output for the object alone: a library that prints does so on standard error.
UniqueFd take_standard_output() {
  UniqueFd output(dup(STDOUT_FILENO));
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return output;
}

std::string answer(int argc, char** argv, bool& good) {
  const std::string_view question = argc > 1 ? argv[1] : "";
  if (question == "--load" && argc == 3) return loading_as_json(argv[2]);
  if (question == "--access" && argc == 3) return access_as_json(argv[2]);
  if (question == "--sites") return sites_as_json({argv + 2, argv + argc}, good);
  return settings_as_json({argv, argv + argc});
}

}  // namespace

int main(int argc, char** argv) {
  try {
    use_language_of_locale("UTF-8");
    const UniqueFd output = take_standard_output();
    bool good = true;
    const std::string line = answer(argc, argv, good) + "\n";
    return dprintf(output.get(), "%s", line.c_str()) < 0 || !good ? 1 : 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel-settings: %s\n", error.what());
    return 1;
  }
}
