#include "server/answer.h"

#include <cstring>
#include <utility>
#include <variant>

#include "Services/dispatcher/json_reply.h"
#include "libs/lib_manager.h"
#include "util/json/failure_reply.h"
#include "util/log/log.h"
#include "util/text/format.h"
#include "util/text/messages.h"
#include "util/text/utf8.h"

namespace {

constexpr std::size_t kShortestRequest = 6;  // bytes of a JSON request
constexpr std::size_t kShownSize = 64;       // bytes of an unrecognised message that are printed

constexpr std::size_t reply_size(bool canned) { return canned ? kCannedReplySize : kReplySize; }

/// Writes what the client is told of an exception to `reply`, and prints it. The canned request
/// gets the bare text.
void write_exception(bool canned, const Gbk& text, TextBuffer reply) {
  if (canned) {
    fail_with(reply, text);
  } else {
    write_failure(reply, text);
  }
  print("%s", shown(GbkView(reply.data)).c_str());
}

/// The beginning of a message, and its length: more of it may be somebody's data.
void print_unrecognised(std::string_view message) {
  const Gbk beginning = utf8_to_gbk(Utf8View(cut_utf8(message, kShownSize)));
  print_line(messages::kUnrecognisedLine,
             format_gbk(messages::kUnrecognisedLine, beginning, message.size()));
}

}  // namespace

std::size_t Answerer::answer(std::string_view message, const FunctionNames* allowed,
                             lws* connection, TextBuffer out) {
  if (message.substr(0, kCannedName.size()) == kCannedName)
    return answer_request({kCannedRequest, true, allowed, connection}, out);
  if (message.size() >= kShortestRequest && message[0] == '{')
    return answer_request({message, false, allowed, connection}, out);
  print_unrecognised(message);
  return answer_failure(messages::kUnrecognised, out);
}

std::size_t Answerer::answer_request(const Request& request, TextBuffer out) {
  char reply[kCannedReplySize];  // only its text is ever looked at
  reply[0] = '\0';
  const Outcome outcome = dispatch(request, {reply, reply_size(request.canned)});
  const char* fid = dispatcher ? dispatcher->function() : "";
  std::size_t length = 0;
  if (const auto* ticket = std::get_if<Ticket>(&outcome)) {
    awaited[*ticket] = {request.connection, fid, request.canned};
  } else if (const auto* utf8 = std::get_if<Utf8>(&outcome)) {
    copy_text(out, utf8->bytes());
    length = utf8->bytes().size();
  } else {
    length = convert(std::get<GbkView>(outcome), fid, out);
  }
  dispatcher.reset();
  return length;
}

/// Runs the dispatcher on the request. A GBK reply is in `reply`.
Outcome Answerer::dispatch(const Request& request, TextBuffer reply) {
  try {
    dispatcher.emplace(&registry, request.text);
    return dispatcher->answer(surroundings, request.allowed, ++last_ticket, reply);
  } catch (...) {
    write_exception(request.canned, current_exception_text(messages::kException), reply);
    return GbkView(reply.data);
  }
}

/// Converts the reply for the client; one that is no GBK is put down to the library that serves the
/// function.
std::size_t Answerer::convert(GbkView reply, const char* fid, TextBuffer out) {
  if (!library_text_to_utf8(reply, out)) registry.report_foreign_text(fid);
  // A client that gets nothing would wait for ever.
  if (out.data[0] == '\0') return answer_failure(messages::kUnusableReply, out);
  return std::strlen(out.data);
}

lws* Answerer::who_waits(Ticket ticket) const {
  const auto it = awaited.find(ticket);
  return it != awaited.end() ? it->second.connection : nullptr;
}

std::size_t Answerer::answer_later(Ticket ticket, const LateReply& late, TextBuffer out) {
  const Awaited asked = std::move(awaited.at(ticket));
  awaited.erase(ticket);
  char room[kCannedReplySize] = {};
  const TextBuffer reply(room, reply_size(asked.canned));
  if (late.kind == LateReply::Kind::kThrown) {
    write_exception(asked.canned, late.text, reply);
  } else {
    if (late.kind == LateReply::Kind::kFailure) write_failure(reply, late.text);
    if (late.kind == LateReply::Kind::kReply) copy_text(reply, late.text.bytes());
    complete_fid(reply, Utf8View(asked.fid));
  }
  return convert(GbkView(room), asked.fid.c_str(), out);
}

void Answerer::forget(lws* connection) {
  const auto it = std::find_if(awaited.begin(), awaited.end(), [&](const auto& entry) {
    return entry.second.connection == connection;
  });
  if (it == awaited.end()) return;
  registry.forget(it->first);
  awaited.erase(it);
}

std::size_t answer_failure(GbkView reason, TextBuffer out) {
  char reply[kReplySize];
  write_failure(reply, reason);
  cpy2utfa(out.data, reply);
  out.data[2 * std::strlen(reply)] = '\0';
  if (out.data[0] == '\0') write_failure(out, messages::kNoConversion);
  return std::strlen(out.data);
}
