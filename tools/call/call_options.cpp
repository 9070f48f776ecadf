#include "tools/call/call_options.h"

#include <getopt.h>
#include <unistd.h>

#include <iostream>
#include <iterator>
#include <regex>

#include "util/language/language.h"
#include "util/os/port.h"
#include "util/text/format.h"
#include "util/text/number.h"

namespace {

constexpr const char* kDefaultUrl = "ws://127.0.0.1:47392";
constexpr int kLongestTimeoutSeconds = 86400;

ServiceUrl parse_url(const std::string& text) {
  static const std::regex kParts(
      R"((\w+)://(?:\[([[:xdigit:]:.]+)\]|([^\[\]/?#:]+))(?::(\d{1,9}))?(/.*)?)");
  std::smatch parts;
  if (!std::regex_match(text, parts, kParts)) {
    throw UsageError(
        format_text(translated("--url %s: not an address such as %s"), text.c_str(), kDefaultUrl));
  }
  const std::string scheme = parts[1];
  ServiceUrl url;
  url.text = text;
  url.tls = scheme == "wss";
  if (!url.tls && scheme != "ws") {
    throw UsageError(
        format_text(translated("--url %s: the address begins with ws:// or wss://"), text.c_str()));
  }
  const std::string port = parts[4].matched ? parts[4].str() : url.tls ? "443" : "80";
  url.port = whole_number(port, 1, kHighestPort).value_or(0);
  if (url.port == 0) {
    throw UsageError(
        format_text(translated("--url %s: a port lies between 1 and 65535"), text.c_str()));
  }
  url.host = parts[2].str() + parts[3].str();
  url.path = parts[5].matched ? parts[5].str() : "/";
  return url;
}

int parse_timeout(std::string_view text) {
  const auto seconds = whole_number(text, 1, kLongestTimeoutSeconds);
  if (!seconds) {
    throw UsageError(format_text(translated("--timeout %s: give whole seconds from 1 to %d"),
                                 std::string(text).c_str(), kLongestTimeoutSeconds));
  }
  return *seconds;
}

std::string read_standard_input() {
  std::string text(std::istreambuf_iterator<char>(std::cin), {});
  if (std::cin.bad()) throw UsageError(translated("standard input can't be read"));
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
  return text;
}

}  // namespace

const char* const kUsage = translatable(
    "Usage: quorvel-call [OPTION]... REQUEST\n"
    "Send REQUEST to the card-reading service and print its reply.\n"
    "REQUEST is a JSON object such as '{\"fid\":\"getconfig\"}'; \"-\" reads it from standard "
    "input.\n"
    "\n"
    "  --url URL          address of the service (ws://127.0.0.1:47392);\n"
    "                     wss:// when the service was started with -s\n"
    "  --origin ORIGIN    call as a page of that site does, such as https://portal.example.org\n"
    "  --ca FILE          certificate (PEM) to trust beside those of the system\n"
    "  --timeout SECONDS  how long to wait for the reply (30)\n"
    "  --help             print this text\n"
    "\n"
    "Exit status: 0 the reply's \"result\" is \"true\", 1 it is not, 2 no reply,\n"
    "3 wrong usage, or the reply can't be written.\n");

CallOptions parse_options(int argc, char** argv) {
  enum Option { kUrl = 1, kOrigin, kCa, kTimeout, kHelp };
  static const option kOptions[] = {
      {"url", required_argument, nullptr, kUrl}, {"origin", required_argument, nullptr, kOrigin},
      {"ca", required_argument, nullptr, kCa},   {"timeout", required_argument, nullptr, kTimeout},
      {"help", no_argument, nullptr, kHelp},     {nullptr, 0, nullptr, 0}};
  CallOptions options;
  std::string url = kDefaultUrl;
  opterr = 0;
  int found = 0;
  while ((found = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (found) {
      case kUrl:
        url = optarg;
        break;
      case kOrigin:
        options.origin = optarg;
        break;
      case kCa:
        options.ca_file = optarg;
        break;
      case kTimeout:
        options.timeout_seconds = parse_timeout(optarg);
        break;
      case kHelp:
        options.help = true;
        return options;
      default:
        throw UsageError(format_text(translated("%s: unknown option, or its value is missing"),
                                     argv[optind - 1]));
    }
  }
  if (argc - optind != 1) throw UsageError(translated("give exactly one request"));
  if (!options.ca_file.empty() && access(options.ca_file.c_str(), R_OK) != 0) {
    throw UsageError(format_text(translated("--ca %s: can't be read"), options.ca_file.c_str()));
  }
  options.url = parse_url(url);
  options.request = argv[optind];
  if (options.request == "-") options.request = read_standard_input();
  return options;
}
