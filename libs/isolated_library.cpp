#include "libs/isolated_library.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "util/json/failure_reply.h"
#include "util/log/log.h"
#include "util/os/child.h"
#include "util/text/conversion.h"
#include "util/text/format.h"
#include "util/text/messages.h"

namespace {

/// What an idle library may take to give back what it holds.
constexpr std::chrono::seconds kEndPatience(1);

}  // namespace

IsolatedLibrary::IsolatedLibrary(std::string library_path, std::chrono::seconds call_limit,
                                 EventSet& service_events, const LateReplyHandler& reply_handler)
    : path(std::move(library_path)),
      limit(call_limit),
      events(service_events),
      on_reply(reply_handler) {
  events.watch(timer.descriptor(), *this);
}

IsolatedLibrary::~IsolatedLibrary() {
  ask_to_end();
  end(std::chrono::steady_clock::now() + kEndPatience);
}

bool IsolatedLibrary::init(TextBuffer errtext) {
  start();
  while (state == State::kLoading) events.handle_events(-1);
  if (was_ready) return true;
  if (was_thrown) throw LibraryException(refusal);
  return fail_with(errtext, refusal);
}

LibraryCondition IsolatedLibrary::condition() const {
  using Seen = LibraryCondition::State;
  LibraryCondition seen{Seen::kRestarting, {}, restarts, waiting.size()};
  if (state == State::kIdle) seen.state = Seen::kReady;
  if (state == State::kBusy) seen.state = Seen::kWorking;
  if (state == State::kDown) {
    seen.state = Seen::kFailed;
    seen.reason = refusal;
  }
  return seen;
}

int IsolatedLibrary::call(const char* name, const char* command, TextBuffer reply,
                          Deferral* later) {
  if (state == State::kDown || later == nullptr) {
    write_failure(reply, messages::kLibraryUnavailable);
    return 0;
  }
  CommandFrame frame{++last_number, static_cast<std::uint32_t>(reply.size), name, command};
  waiting.push_back({later->ticket, std::move(frame)});
  later->taken = true;
  start_next();
  return 0;
}

void IsolatedLibrary::forget(Ticket ticket) {
  const auto it = std::find_if(waiting.begin(), waiting.end(),
                               [&](const Call& call) { return call.ticket == ticket; });
  if (it != waiting.end()) waiting.erase(it);
}

void IsolatedLibrary::ask_to_end() {
  if (helper && state == State::kIdle) helper->ask_to_end();
}

void IsolatedLibrary::end(std::chrono::steady_clock::time_point latest) {
  if (helper && state == State::kIdle) helper->wait_until(latest);
  helper.reset();
  state = State::kDown;
}

void IsolatedLibrary::on_event() {
  if (read_packets()) return;  // an event of another kind comes again
  if (const auto status = helper ? helper->status() : std::nullopt) on_end(*status);
  if (timer.has_expired()) on_deadline();
}

/// Starts the helper; the library is then being loaded, unless no helper can be had.
void IsolatedLibrary::start() {
  has_answered = false;
  if (was_ready) ++restarts;
  try {
    helper = std::make_unique<HelperProcess>(path, events, *this);
    state = State::kLoading;
    timer.start(limit);
  } catch (const std::exception& error) {
    on_failed_start(cannot_load(path, error.what()));
  }
}

void IsolatedLibrary::start_next() {
  if (state != State::kIdle || waiting.empty()) return;
  // A helper that has gone does not take it; the call then waits for the next one.
  if (!helper->send(write_frame(waiting.front().frame))) {
    helper->kill();
    return;
  }
  running = std::move(waiting.front());
  waiting.pop_front();
  state = State::kBusy;
  timer.start(limit);
}

/// Whether there were any.
bool IsolatedLibrary::read_packets() {
  std::string packet;
  bool any = false;
  while (helper) {
    const HelperProcess::Received received = helper->receive(packet);
    if (received == HelperProcess::Received::kNothing) break;
    any = received == HelperProcess::Received::kPacket;
    if (any && take_packet(packet)) continue;
    if (any)
      log_error("%s: its helper process sent what is no answer, and is ended\n",
                shown(path).c_str());
    if (helper) {
      helper->kill();        // its end is seen later
      helper->ask_to_end();  // and no further packet of it
    }
    break;
  }
  return any;
}

/// False for what can't come from a helper whose library keeps to its own memory.
bool IsolatedLibrary::take_packet(const std::string& packet) {
  auto frame = read_helper_frame(packet);
  if (!frame) return false;
  if (state == State::kLoading) {
    if (frame->word == HelperWord::kReply) return false;
    on_loaded(*frame);
    return true;
  }
  const bool is_answer = frame->word == HelperWord::kReply || frame->word == HelperWord::kThrown;
  if (state != State::kBusy || !is_answer || frame->number != running->frame.number ||
      frame->text.bytes().size() >= running->frame.reply_size)
    return false;
  on_answered(std::move(*frame));
  return true;
}

void IsolatedLibrary::on_loaded(const HelperFrame& frame) {
  if (frame.word != HelperWord::kReady) {
    on_failed_start(frame.text, frame.word == HelperWord::kThrown);
    return;
  }
  timer.stop();
  function_list = frame.text.bytes();
  was_ready = true;
  loaded_at = std::chrono::steady_clock::now();
  state = State::kIdle;
  start_next();
}

void IsolatedLibrary::on_answered(HelperFrame frame) {
  timer.stop();
  has_answered = true;
  pause.reset();
  state = State::kIdle;
  const bool thrown = frame.word == HelperWord::kThrown;
  finish({thrown ? LateReply::Kind::kThrown : LateReply::Kind::kReply, std::move(frame.text)});
  start_next();
}

void IsolatedLibrary::on_deadline() {
  switch (state) {
    case State::kLoading:
      on_failed_start(
          cannot_load(path, "no answer within " + std::to_string(limit.count()) + " s"));
      break;
    case State::kBusy:
      log_error("%s: no reply to \"%s\" within %ld s; its helper process is ended\n",
                shown(path).c_str(), shown(running->frame.name).c_str(),
                static_cast<long>(limit.count()));
      state = State::kEnding;
      timer.start(limit);
      helper->kill();
      finish({LateReply::Kind::kFailure, messages::kLibraryTimedOut});
      break;
    case State::kEnding:
      state = State::kDown;
      refusal = messages::kLibraryTimedOut;
      timer.start(limit);
      refuse_waiting();
      break;
    case State::kDown:
      if (helper) {
        timer.start(limit);
      } else {
        start();
      }
      break;
    case State::kIdle:
      break;
  }
}

void IsolatedLibrary::on_end(int status) {
  const std::string end = describe_end(status);
  helper.reset();
  switch (state) {
    case State::kLoading:
      on_failed_start(cannot_load(path, end));
      break;
    case State::kBusy:
      log_error("%s: \"%s\" %s; its helper process is started anew\n", shown(path).c_str(),
                shown(running->frame.name).c_str(), end.c_str());
      timer.stop();
      state = State::kEnding;
      finish({LateReply::Kind::kFailure, messages::kLibraryCrashed});
      start();
      break;
    case State::kIdle:
      log_error("%s: the library %s between two calls\n", shown(path).c_str(), end.c_str());
      if (has_answered || std::chrono::steady_clock::now() - loaded_at > RestartPause::kShortest) {
        start();
      } else {
        on_failed_start(Gbk(end));
      }
      break;
    case State::kEnding:
      start();
      break;
    case State::kDown:
      break;
  }
}

/// The first start that fails is the last. Later ones are repeated after a pause, which doubles.
void IsolatedLibrary::on_failed_start(const Gbk& reason, bool thrown) {
  if (helper) helper->kill();
  timer.stop();
  state = State::kDown;
  refusal = reason;
  was_thrown = thrown;
  if (!was_ready) return;
  const std::chrono::seconds next = pause.next();
  log_error("%s: starting it anew failed (%s); the next try is in %ld s\n", shown(path).c_str(),
            shown(reason).c_str(), static_cast<long>(next.count()));
  timer.start(next);
  refuse_waiting();
}

void IsolatedLibrary::finish(const LateReply& reply) {
  const Ticket ticket = running->ticket;
  running.reset();
  if (on_reply) on_reply(ticket, reply);
}

void IsolatedLibrary::refuse_waiting() {
  for (const Call& call : std::exchange(waiting, {}))
    if (on_reply) on_reply(call.ticket, {LateReply::Kind::kFailure, messages::kLibraryUnavailable});
}
