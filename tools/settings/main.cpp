// Tells quorvel-doctor, in one JSON object on standard output, what the service makes of its
// settings, or of one library:
//   quorvel-settings [OPTION-OF-THE-SERVICE]...
//   quorvel-settings --load LIBRARY

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string_view>

#include "tools/settings/loading.h"
#include "tools/settings/reading.h"
#include "util/handle/unique_fd.h"
#include "util/language/language.h"

namespace {

/// Standard output for the object alone: a library that prints does so on standard error.
UniqueFd take_standard_output() {
  UniqueFd output(dup(STDOUT_FILENO));
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return output;
}

std::string answer(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == "--load") return loading_as_json(argv[2]);
  return settings_as_json({argv, argv + argc});
}

}  // namespace

int main(int argc, char** argv) {
  try {
    use_language_of_locale("UTF-8");
    const UniqueFd output = take_standard_output();
    const std::string line = answer(argc, argv) + "\n";
    return dprintf(output.get(), "%s", line.c_str()) < 0 ? 1 : 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel-settings: %s\n", error.what());
    return 1;
  }
}
