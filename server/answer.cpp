#include "server/answer.h"

#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "Services/dispatcher/dispatcher.h"
#include "libs/lib_manager.h"
#include "util/json/failure_reply.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

constexpr std::string_view kCannedName = "readcardbas";
constexpr char kCannedRequest[] = R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
constexpr std::size_t kShortestRequest = 6;  // bytes of a JSON request
constexpr std::size_t kShownSize = 64;       // bytes of an unrecognised message that are printed

/// The dispatcher of the message at hand, in a place made once: 200 KiB of automatic storage would
/// cost each request the walk of the stack's guard through its pages.
std::optional<Jdispatcher> dispatcher;

/// Writes what the client is told of the exception being handled to `reply`, and prints it. The
/// canned request gets the bare text.
void write_exception(bool canned, TextBuffer reply) {
  const std::string text = current_exception_text(messages::kException);
  if (canned) {
    fail_with(reply, text);
  } else {
    write_failure(reply, text);
  }
  print("%s", reply.data);
}

void dispatch(const Service& service, const char* request, bool canned, TextBuffer reply) {
  try {
    dispatcher.emplace(&service.registry, request);
    if (dispatcher->init(reply.data, service.platform, reply.size))
      dispatcher->dispatch(reply.data, reply.size);
  } catch (...) {
    write_exception(canned, reply);
  }
}

std::size_t answer_request(const Service& service, const char* request, bool canned,
                           TextBuffer out) {
  char reply[kCannedReplySize];
  const std::size_t size = canned ? kCannedReplySize : kReplySize;
  std::memset(reply, 0, size);
  dispatch(service, request, canned, {reply, size});
  if (!library_text_to_utf8(reply, out) && dispatcher)
    service.registry.report_foreign_text(dispatcher->function());
  dispatcher.reset();
  return std::strlen(out.data);
}

/// The beginning of a message for the log, which is GBK, and the message's length: more of it may
/// be somebody's data.
void print_unrecognised(std::string_view message) {
  std::size_t end = std::min(message.size(), kShownSize);
  while (end > 0 && end < message.size() && is_utf8_tail(message[end])) --end;
  print(messages::kUnrecognisedLine, utf8_to_gbk(message.substr(0, end)).c_str(), message.size());
}

}  // namespace

std::size_t answer_message(const Service& service, const char* message, TextBuffer out) {
  std::size_t length = 0;
  if (std::strncmp(message, kCannedName.data(), kCannedName.size()) == 0) {
    length = answer_request(service, kCannedRequest, true, out);
  } else if (message[0] == '{' && strnlen(message, kShortestRequest) == kShortestRequest) {
    length = answer_request(service, message, false, out);
  } else {
    print_unrecognised(message);
    return answer_failure(messages::kUnrecognised, out);
  }
  // A client that gets nothing would wait for ever.
  return length > 0 ? length : answer_failure(messages::kUnusableReply, out);
}

std::size_t answer_failure(const char* reason, TextBuffer out) {
  char reply[kReplySize];
  write_failure(reply, reason);
  cpy2utfa(out.data, reply);
  out.data[2 * std::strlen(reply)] = '\0';
  if (out.data[0] == '\0') write_failure(out, messages::kNoConversion);
  return std::strlen(out.data);
}
