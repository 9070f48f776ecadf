#include "tools/libcheck/arguments.h"

#include <getopt.h>

#include <charconv>
#include <filesystem>

namespace {

constexpr int kDefaultTimeoutSeconds = 10;
constexpr int kLongestTimeoutSeconds = 3600;
constexpr int kDefaultRounds = 20;
constexpr int kFewestRounds = 2;  // one for each half
constexpr int kMostRounds = 10000;

int parse_number(const std::string& name, const std::string& text, int least, int most) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped != end || number < least || number > most)
    throw UsageError(name + " " + text + ": give a whole number from " + std::to_string(least) +
                     " to " + std::to_string(most));
  return number;
}

Request parse_request(const std::string& text) {
  try {
    return make_request(text);
  } catch (const std::invalid_argument& problem) {
    throw UsageError("--request " + text + ": " + problem.what());
  }
}

/// A relative path means the working directory here, but the program's directory to the service.
std::string parse_library(const std::string& path) {
  std::error_code error;
  const bool file = std::filesystem::is_regular_file(path, error);
  if (error) throw UsageError(path + ": " + error.message());
  if (!file) throw UsageError(path + ": not a file");
  // Links stay: the service orders libraries by the paths that it is given.
  return std::filesystem::absolute(path).lexically_normal().string();
}

}  // namespace

const char* const kUsage =
    "Usage: quorvel-libcheck [OPTION]... LIBRARY [OTHER_LIBRARY]...\n"
    "Check a reader library against its contract with the card-reading service, and whether\n"
    "functions of the other libraries overlap with its own. Every call runs in a process of its\n"
    "own. Without --request every function that the library declares is called: put a card on\n"
    "the reader that may be written.\n"
    "\n"
    "  --request REQUEST  call with this request of a page instead, such as\n"
    "                     '{\"fid\":\"readcardbas\",\"data\":{\"itype\":3}}'; can be repeated\n"
    "  --timeout SECONDS  longest time for one call (10)\n"
    "  --rounds NUMBER    repetitions when looking for leaks (20)\n"
    "  --json             report in JSON\n"
    "  --help             print this text\n"
    "\n"
    "Exit status: 0 the contract is kept, warnings included, 1 it is broken, 2 wrong usage, or\n"
    "the library can't be loaded.\n";

Arguments parse_arguments(int argc, char** argv) {
  enum Option { kRequest = 1, kTimeout, kRounds, kJson, kHelp };
  static constexpr option kOptions[] = {{"request", required_argument, nullptr, kRequest},
                                        {"timeout", required_argument, nullptr, kTimeout},
                                        {"rounds", required_argument, nullptr, kRounds},
                                        {"json", no_argument, nullptr, kJson},
                                        {"help", no_argument, nullptr, kHelp},
                                        {nullptr, 0, nullptr, 0}};
  Arguments arguments;
  arguments.timeout = std::chrono::seconds(kDefaultTimeoutSeconds);
  arguments.rounds = kDefaultRounds;
  int chosen = 0;
  while ((chosen = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (chosen) {
      case kRequest:
        arguments.requests.push_back(parse_request(optarg));
        break;
      case kTimeout:
        arguments.timeout =
            std::chrono::seconds(parse_number("--timeout", optarg, 1, kLongestTimeoutSeconds));
        break;
      case kRounds:
        arguments.rounds = parse_number("--rounds", optarg, kFewestRounds, kMostRounds);
        break;
      case kJson:
        arguments.json = true;
        break;
      case kHelp:
        arguments.help = true;
        return arguments;
      default:
        throw UsageError("");  // getopt_long has said it
    }
  }
  if (optind >= argc) throw UsageError("name the library to check");
  arguments.library = parse_library(argv[optind]);
  for (int i = optind + 1; i < argc; ++i) arguments.others.push_back(parse_library(argv[i]));
  return arguments;
}
