#include "server/answer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Services/dispatcher/dispatcher.h"
#include "Services/dispatcher/json_reply.h"
#include "access/access_rules.h"
#include "libs/lib_manager.h"
#include "util/json/failure_reply.h"
#include "util/log/log.h"
#include "util/text/ascii.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

constexpr std::string_view kCannedName = "readcardbas";
constexpr std::string_view kCannedRequest =
    R"({"fid":"readcardbas","data":{"itype":3,"bae140":"3"}})";
constexpr std::size_t kShortestRequest = 6;  // bytes of a JSON request
constexpr std::size_t kShownSize = 64;       // bytes of an unrecognised message that are printed

/// The dispatcher of the message at hand, in a place made once: 200 KiB of automatic storage would
/// cost each request the walk of the stack's guard through its pages.
std::optional<Jdispatcher> dispatcher;

/// A request, as the channel hands it on.
struct Request {
  std::string_view text;
  bool canned;
  const FunctionNames* allowed;
};

/// What a request was, as far as its reply needs to know.
struct Asked {
  std::string fid;  ///< as the client spelled it
  bool canned;

  std::size_t reply_size() const { return canned ? kCannedReplySize : kReplySize; }
};

/// The requests whose replies come later. Their numbers are never used twice, so that no reply can
/// reach a connection that has come since.
std::unordered_map<Ticket, Asked> awaited;
Ticket last_ticket = 0;

/// Writes what the client is told of an exception to `reply`, and prints it. The canned request
/// gets the bare text.
void write_exception(bool canned, const std::string& text, TextBuffer reply) {
  if (canned) {
    fail_with(reply, text);
  } else {
    write_failure(reply, text);
  }
  print("%s", reply.data);
}

/// Runs the dispatcher on the request. Where the answer has neither ticket nor length, the reply
/// (GBK) is in `reply`; a long one is in `out` already.
Answer dispatch(const Service& service, const Request& request, TextBuffer reply, TextBuffer out) {
  try {
    dispatcher.emplace(&service.registry, request.text);
    if (!dispatcher->init(reply.data, service.platform, reply.size)) return {};
    if (request.allowed != nullptr && !request.allowed->contains(dispatcher->function())) {
      write_failure(reply, messages::kNotAllowed);
      complete_fid(reply, dispatcher->function());
      return {};
    }
    if (dispatcher->dispatch_long(service.access, out)) return {std::strlen(out.data)};
    const Library::Later later = dispatcher->dispatch_later(last_ticket + 1, reply.size);
    if (later == Library::Later::kAccepted) return {0, ++last_ticket};
    if (later == Library::Later::kUnavailable) {
      write_failure(reply, messages::kLibraryUnavailable);
      complete_fid(reply, dispatcher->function());
    } else {
      dispatcher->dispatch(reply.data, reply.size);
    }
  } catch (...) {
    write_exception(request.canned, current_exception_text(messages::kException), reply);
  }
  return {};
}

/// Converts the reply (GBK) for the client; one that is no GBK is put down to the library that
/// serves the function.
std::size_t convert(const Service& service, const char* reply, const char* fid, TextBuffer out) {
  if (!library_text_to_utf8(reply, out)) service.registry.report_foreign_text(fid);
  // A client that gets nothing would wait for ever.
  if (out.data[0] == '\0') return answer_failure(messages::kUnusableReply, out);
  return std::strlen(out.data);
}

Answer answer_request(const Service& service, const Request& request, TextBuffer out) {
  char reply[kCannedReplySize];  // only its text is ever looked at
  reply[0] = '\0';
  const std::size_t size = request.canned ? kCannedReplySize : kReplySize;
  Answer answer = dispatch(service, request, {reply, size}, out);
  const char* fid = dispatcher ? dispatcher->function() : "";
  if (answer.ticket != 0) {
    awaited[answer.ticket] = {fid, request.canned};
  } else if (answer.length == 0) {
    answer.length = convert(service, reply, fid, out);
  }
  dispatcher.reset();
  return answer;
}

/// The beginning of a message for the log, which is GBK, and the message's length: more of it may
/// be somebody's data.
void print_unrecognised(std::string_view message) {
  std::size_t end = std::min(message.size(), kShownSize);
  while (end > 0 && end < message.size() && is_utf8_tail(message[end])) --end;
  print(messages::kUnrecognisedLine, utf8_to_gbk(message.substr(0, end)).c_str(), message.size());
}

}  // namespace

Answer answer_message(const Service& service, std::string_view message,
                      const FunctionNames* allowed, TextBuffer out) {
  if (message.substr(0, kCannedName.size()) == kCannedName)
    return answer_request(service, {kCannedRequest, true, allowed}, out);
  if (message.size() >= kShortestRequest && message[0] == '{')
    return answer_request(service, {message, false, allowed}, out);
  print_unrecognised(message);
  return {answer_failure(messages::kUnrecognised, out)};
}

std::size_t answer_later(const Service& service, Ticket ticket, const LateReply& late,
                         TextBuffer out) {
  const Asked asked = std::move(awaited.at(ticket));
  awaited.erase(ticket);
  char room[kCannedReplySize] = {};
  const TextBuffer reply(room, asked.reply_size());
  if (late.kind == LateReply::Kind::kThrown) {
    write_exception(asked.canned, late.text, reply);
  } else {
    if (late.kind == LateReply::Kind::kFailure) write_failure(reply, late.text);
    if (late.kind == LateReply::Kind::kReply) copy_text(reply, late.text);
    complete_fid(reply, asked.fid);
  }
  return convert(service, room, asked.fid.c_str(), out);
}

void forget_answer(const Service& service, Ticket ticket) {
  if (awaited.erase(ticket) != 0) service.registry.forget(ticket);
}

std::size_t answer_failure(const char* reason, TextBuffer out) {
  char reply[kReplySize];
  write_failure(reply, reason);
  cpy2utfa(out.data, reply);
  out.data[2 * std::strlen(reply)] = '\0';
  if (out.data[0] == '\0') write_failure(out, messages::kNoConversion);
  return std::strlen(out.data);
}
