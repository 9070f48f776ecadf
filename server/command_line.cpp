#include "server/command_line.h"

#include <string>
#include <string_view>

#include "util/log/log.h"
#include "util/text/conversion.h"
#include "util/text/number.h"

namespace {

constexpr char kLevelOption = 'd';
/// Options without a value: libwebsockets looks at their beginning alone.
constexpr std::string_view kFlags = "sh";
constexpr char kStrictHost = 'h';

void report_flag(const char* word, char flag) {
  log_warning("the option \"%s\" is taken as -%c; write that\n", shown(word).c_str(), flag);
}

void report_level(std::string_view level) {
  if (!whole_number(level, 0))
    log_warning("the option -d \"%s\" is no number, and nothing is logged: write -d 1031\n",
                shown(level).c_str());
}

}  // namespace

void report_command_line(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    const char option = word.size() > 1 && word[0] == '-' ? word[1] : '\0';
    if (option == kLevelOption) {
      std::string_view level = word.substr(2);
      if (level.empty() && i + 1 < argc) level = argv[++i];
      report_level(level);
    } else if (option != '\0' && kFlags.find(option) != std::string_view::npos) {
      if (word.size() > 2) report_flag(argv[i], option);
      if (option == kStrictHost)
        log_warning("with -h the WebSocket of every browser is refused: take it out\n");
    } else {
      log_warning("the option \"%s\" means nothing: there are -s for TLS, -d LEVEL and -h\n",
                  shown(argv[i]).c_str());
    }
  }
}
