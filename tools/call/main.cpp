// Sends one request to the service, prints the reply and tells its result by the exit status.

#include <cjson/cJSON.h>

#include <cstdio>
#include <exception>
#include <memory>

#include "tools/call/call_options.h"
#include "tools/call/exchange.h"
#include "util/language/language.h"
#include "util/text/format.h"

namespace {

// Scripts branch on these numbers: never renumber them.
enum ExitStatus { kSuccess = 0, kRefused = 1, kNoReply = 2, kUsageError = 3 };

bool says_true(const std::string& reply) {
  const std::unique_ptr<cJSON, void (*)(cJSON*)> document(
      cJSON_ParseWithLength(reply.data(), reply.size()), cJSON_Delete);
  const char* result =
      cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(document.get(), "result"));
  return result != nullptr && std::string_view(result) == "true";
}

void explain_no_reply(const ServiceUrl& url, const char* reason) {
  std::fprintf(
      stderr,
      translated("quorvel-call: no reply from %s: %s\n"
                 "Please check:\n"
                 "  - Is the service running? quorvel-doctor tells what is wrong with it.\n"
                 "  - Is %d its port? See localport under [SERVER] in bin/quorvel_service.ini.\n"),
      url.text.c_str(), reason, url.port);
  std::fputs(
      url.tls
          ? translated("  - Was it started with -s? Without it, use ws:// instead of wss://.\n"
                       "  - Is its certificate trusted and made for this host name? See --ca.\n")
          : translated("  - Was it started with -s? Then use wss:// instead of ws://.\n"),
      stderr);
}

void explain_refusal(const CallOptions& options) {
  const std::string who = options.origin.empty()
                              ? translated("programs that name no origin")
                              : format_text(translated("pages of %s"), options.origin.c_str());
  std::fprintf(stderr,
               translated("quorvel-call: %s does not serve %s, or not under that host name (403).\n"
                          "Its log says which. See originN and hostN under [ACCESS] in "
                          "bin/quorvel_service.ini.\n"),
               options.url.text.c_str(), who.c_str());
}

int call(const CallOptions& options) {
  const std::string reply = exchange(options);
  const std::string line = reply + "\n";
  if (std::fwrite(line.data(), 1, line.size(), stdout) < line.size() || std::fflush(stdout) != 0) {
    std::perror(translated("quorvel-call: the reply can't be written"));
    return kUsageError;
  }
  return says_true(reply) ? kSuccess : kRefused;
}

}  // namespace

int main(int argc, char** argv) {
  use_language_of_locale();
  CallOptions options;
  try {
    options = parse_options(argc, argv);
    if (options.help) return std::fputs(translated(kUsage), stdout) < 0 ? kUsageError : kSuccess;
    return call(options);
  } catch (const Refused&) {
    explain_refusal(options);
    return kNoReply;
  } catch (const NoReply& error) {
    explain_no_reply(options.url, error.what());
    return kNoReply;
  } catch (const UsageError& error) {
    std::fprintf(stderr, translated("quorvel-call: %s\nTry quorvel-call --help.\n"), error.what());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "quorvel-call: %s\n", error.what());
  }
  return kUsageError;
}
