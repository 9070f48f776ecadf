#include "tools/libcheck/arguments.h"

#include <getopt.h>

#include <filesystem>

#include "util/language/language.h"
#include "util/text/format.h"
#include "util/text/number.h"

namespace {

constexpr int kDefaultTimeoutSeconds = 10;
constexpr int kLongestTimeoutSeconds = 3600;
constexpr int kDefaultRounds = 20;
constexpr int kFewestRounds = 2;  // one for each half
constexpr int kMostRounds = 10000;

int parse_number(const std::string& name, const std::string& text, int least, int most) {
  const auto number = whole_number(text, least, most);
  if (!number)
    throw UsageError(format_text(translated("%s %s: give a whole number from %d to %d"),
                                 name.c_str(), text.c_str(), least, most));
  return *number;
}

Request parse_request(const std::string& option, const std::string& text) {
  try {
    return make_request(text);
  } catch (const std::invalid_argument& problem) {
    throw UsageError(option + " " + text + ": " + problem.what());
  }
}

std::string parse_file(const std::string& option, const std::string& path) {
  if (path.empty())
    throw UsageError(format_text(translated("%s needs the name of a file"), option.c_str()));
  return path;
}

/// A relative path means the working directory here, but the program's directory to the service.
std::string parse_library(const std::string& path) {
  std::error_code error;
  const bool file = std::filesystem::is_regular_file(path, error);
  if (error) throw UsageError(path + ": " + error.message());
  if (!file) throw UsageError(format_text(translated("%s: not a file"), path.c_str()));
  // Links stay: the service orders libraries by the paths that it is given.
  return std::filesystem::absolute(path).lexically_normal().string();
}

enum Option {
  kRequest = 1,
  kCall,
  kRecord,
  kReplay,
  kTimeout,
  kRounds,
  kJson,
  kPretty,
  kWatch,
  kHelp
};

/// `value` is null for an option without one.
void take_option(int option, const char* value, Arguments& arguments) {
  switch (option) {
    case kRequest:
      arguments.requests.push_back(parse_request("--request", value));
      break;
    case kCall:
      arguments.calls.push_back(parse_request("--call", value));
      break;
    case kRecord:
      arguments.record = parse_file("--record", value);
      break;
    case kReplay:
      arguments.replay = parse_file("--replay", value);
      break;
    case kTimeout:
      arguments.timeout =
          std::chrono::seconds(parse_number("--timeout", value, 1, kLongestTimeoutSeconds));
      break;
    case kRounds:
      arguments.rounds = parse_number("--rounds", value, kFewestRounds, kMostRounds);
      break;
    case kJson:
      arguments.json = true;
      break;
    case kPretty:
      arguments.pretty = true;
      break;
    case kWatch:
      arguments.watch = true;
      break;
    case kHelp:
      arguments.help = true;
      break;
    default:
      throw UsageError("");  // getopt_long has said it
  }
}

/// Refuses what would be read and then left aside.
void check_combination(const Arguments& arguments, bool checks_otherwise) {
  const bool records = !arguments.record.empty();
  const bool replays = !arguments.replay.empty();
  const bool calls = !arguments.calls.empty();
  const struct {
    bool wrong;
    const char* text;
  } rules[] = {
      {replays && (records || calls),
       translatable("--replay makes the calls of its file, and no others")},
      {records && arguments.watch, translatable("--record keeps one session; leave --watch out")},
      {arguments.json && arguments.watch, translatable("--json is one report; leave --watch out")},
      {arguments.pretty && !calls && !records,
       translatable("--pretty belongs to --call and --record")},
      {checks_otherwise && (records || replays || calls),
       translatable(
           "--request, --rounds, --json and other libraries belong to the check, without --call, "
           "--record and --replay")}};
  for (const auto& rule : rules)
    if (rule.wrong) throw UsageError(translated(rule.text));
}

}  // namespace

const char* const kUsage = translatable(
    "Usage: quorvel-libcheck [OPTION]... LIBRARY [OTHER_LIBRARY]...\n"
    "Check a reader library against its contract with the card-reading service, and whether\n"
    "functions of the other libraries overlap with its own. Every call runs in a process of its\n"
    "own. Without --request every function that the library declares is called: put a card on\n"
    "the reader that may be written.\n"
    "\n"
    "  --request REQUEST  call with this request of a page instead, such as\n"
    "                     '{\"fid\":\"readcardbas\",\"data\":{\"itype\":3}}'; can be repeated\n"
    "  --rounds NUMBER    repetitions when looking for leaks (20)\n"
    "  --json             report in JSON\n"
    "\n"
    "In place of the check:\n"
    "  --call REQUEST     print the reply as the page gets it; can be repeated\n"
    "  --record FILE      keep a session: make the calls of --call, or those that standard input\n"
    "                     names, a request or a function a line, and write them to this new file\n"
    "  --replay FILE      make the calls of a recorded session again, and tell what differs\n"
    "  --pretty           print replies indented\n"
    "\n"
    "  --watch            run again whenever the library is built, until Ctrl-C\n"
    "  --timeout SECONDS  longest time for one call (10)\n"
    "  --help             print this text\n"
    "\n"
    "Exit status: 0 the contract is kept, warnings included, every --call succeeded, or nothing\n"
    "differs; 1 otherwise; 2 wrong usage, or the library can't be loaded or the file not used.\n");

Arguments parse_arguments(int argc, char** argv) {
  static constexpr option kOptions[] = {{"request", required_argument, nullptr, kRequest},
                                        {"call", required_argument, nullptr, kCall},
                                        {"record", required_argument, nullptr, kRecord},
                                        {"replay", required_argument, nullptr, kReplay},
                                        {"timeout", required_argument, nullptr, kTimeout},
                                        {"rounds", required_argument, nullptr, kRounds},
                                        {"json", no_argument, nullptr, kJson},
                                        {"pretty", no_argument, nullptr, kPretty},
                                        {"watch", no_argument, nullptr, kWatch},
                                        {"help", no_argument, nullptr, kHelp},
                                        {nullptr, 0, nullptr, 0}};
  Arguments arguments;
  arguments.timeout = std::chrono::seconds(kDefaultTimeoutSeconds);
  arguments.rounds = kDefaultRounds;
  bool checks_otherwise = false;
  int chosen = 0;
  while ((chosen = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    checks_otherwise |= chosen == kRequest || chosen == kRounds || chosen == kJson;
    take_option(chosen, optarg, arguments);
    if (arguments.help) return arguments;
  }
  if (optind >= argc) throw UsageError(translated("name the library to check"));
  arguments.library = parse_library(argv[optind]);
  for (int i = optind + 1; i < argc; ++i) arguments.others.push_back(parse_library(argv[i]));
  check_combination(arguments, checks_otherwise || !arguments.others.empty());
  return arguments;
}
