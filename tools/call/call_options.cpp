#include "tools/call/call_options.h"

#include <getopt.h>
#include <libwebsockets.h>
#include <unistd.h>

#include <charconv>
#include <iostream>
#include <iterator>
#include <vector>

namespace {

constexpr const char* kDefaultUrl = "ws://127.0.0.1:47392";
constexpr int kLongestTimeoutSeconds = 86400;

ServiceUrl parse_url(const std::string& text) {
  std::vector<char> scratch(text.c_str(), text.c_str() + text.size() + 1);
  const char* scheme = nullptr;
  const char* host = nullptr;
  const char* path = nullptr;
  ServiceUrl url;
  url.text = text;
  if (lws_parse_uri(scratch.data(), &scheme, &host, &url.port, &path) != 0 || *host == '\0') {
    throw UsageError("--url " + text + ": not an address such as " + kDefaultUrl);
  }
  url.tls = std::string_view(scheme) == "wss";
  if (!url.tls && std::string_view(scheme) != "ws") {
    throw UsageError("--url " + text + ": the address begins with ws:// or wss://");
  }
  if (url.port < 1 || url.port > 65535) {
    throw UsageError("--url " + text + ": a port lies between 1 and 65535");
  }
  url.host = host;
  url.path = std::string("/") + path;
  return url;
}

int parse_timeout(std::string_view text) {
  int seconds = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc() || stop != end || seconds < 1 || seconds > kLongestTimeoutSeconds) {
    throw UsageError("--timeout " + std::string(text) + ": give whole seconds from 1 to " +
                     std::to_string(kLongestTimeoutSeconds));
  }
  return seconds;
}

std::string read_standard_input() {
  std::string text(std::istreambuf_iterator<char>(std::cin), {});
  if (std::cin.bad()) throw UsageError("standard input can't be read");
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
  return text;
}

}  // namespace

const char* const kUsage =
    "Usage: quorvel-call [OPTION]... REQUEST\n"
    "Send REQUEST to the card-reading service and print its reply.\n"
    "REQUEST is a JSON object such as '{\"fid\":\"getconfig\"}'; \"-\" reads it from standard "
    "input.\n"
    "\n"
    "  --url URL          address of the service (ws://127.0.0.1:47392);\n"
    "                     wss:// when the service was started with -s\n"
    "  --ca FILE          certificate (PEM) to trust beside those of the system\n"
    "  --timeout SECONDS  how long to wait for the reply (30)\n"
    "  --help             print this text\n"
    "\n"
    "Exit status: 0 the reply's \"result\" is \"true\", 1 it is not, 2 no reply,\n"
    "3 wrong usage, or the reply can't be written.\n";

CallOptions parse_options(int argc, char** argv) {
  enum Option { kUrl = 1, kCa, kTimeout, kHelp };
  static const option kOptions[] = {{"url", required_argument, nullptr, kUrl},
                                    {"ca", required_argument, nullptr, kCa},
                                    {"timeout", required_argument, nullptr, kTimeout},
                                    {"help", no_argument, nullptr, kHelp},
                                    {nullptr, 0, nullptr, 0}};
  CallOptions options;
  std::string url = kDefaultUrl;
  opterr = 0;
  int found = 0;
  while ((found = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (found) {
      case kUrl:
        url = optarg;
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
        throw UsageError(std::string(argv[optind - 1]) +
                         ": unknown option, or its value is missing");
    }
  }
  if (argc - optind != 1) throw UsageError("give exactly one request");
  if (!options.ca_file.empty() && access(options.ca_file.c_str(), R_OK) != 0) {
    throw UsageError("--ca " + options.ca_file + ": can't be read");
  }
  options.url = parse_url(url);
  options.request = argv[optind];
  if (options.request == "-") options.request = read_standard_input();
  return options;
}
