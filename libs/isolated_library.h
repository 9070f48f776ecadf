#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "libs/helper_frames.h"
#include "libs/helper_process.h"
#include "libs/library.h"
#include "libs/restart_pause.h"
#include "util/os/event_set.h"
#include "util/os/timer.h"

/// A library in a helper process: a crash, a hang or a slow card costs the request at hand its
/// reply and delays nobody else. The library gets one call at a time, in the order of arrival. A
/// helper that ends is started anew: at once, or when it does not get as far as a reply, after a
/// pause.
class IsolatedLibrary final : public Library, public EventHandler {
 public:
  /// `limit` bounds loading, and each call. `service_events` tell when something is to be done;
  /// both it and `reply_handler` outlive the object.
  IsolatedLibrary(std::string library_path, std::chrono::seconds call_limit,
                  EventSet& service_events, const LateReplyHandler& reply_handler);
  ~IsolatedLibrary() override;
  IsolatedLibrary(const IsolatedLibrary&) = delete;
  IsolatedLibrary& operator=(const IsolatedLibrary&) = delete;

  bool init(TextBuffer errtext) override;
  const char* functions() const override { return function_list.c_str(); }
  LibraryCondition condition() const override;
  int call(const char* name, const char* command, TextBuffer reply, Deferral* later) override;
  void forget(Ticket ticket) override;
  void ask_to_end() override;
  void end(std::chrono::steady_clock::time_point latest) override;
  void on_event() override;

 private:
  enum class State {
    kLoading,  ///< the helper loads the library; calls wait
    kIdle,
    kBusy,    ///< with `running`
    kEnding,  ///< killed, not gone yet; calls wait
    kDown     ///< calls are refused; started anew when the timer expires and the helper is gone
  };

  struct Call {
    Ticket ticket;
    CommandFrame frame;
  };

  void start();
  void start_next();
  bool read_packets();
  bool take_packet(const std::string& packet);
  void on_loaded(const HelperFrame& frame);
  void on_answered(HelperFrame frame);
  void on_deadline();
  void on_end(int status);
  void on_failed_start(const Gbk& reason, bool thrown = false);
  void finish(const LateReply& reply);
  void refuse_waiting();

  const std::string path;
  const std::chrono::seconds limit;
  EventSet& events;
  const LateReplyHandler& on_reply;

  State state = State::kDown;
  Timer timer;
  std::unique_ptr<HelperProcess> helper;
  std::string function_list;
  bool was_ready = false;   ///< has been loaded once, and is therefore started anew
  Gbk refusal;              ///< why it was not loaded the last time
  bool was_thrown = false;  ///< the library threw `refusal`
  std::deque<Call> waiting;
  std::optional<Call> running;
  std::uint32_t last_number = 0;
  unsigned restarts = 0;
  bool has_answered = false;  ///< the present helper has given a reply
  std::chrono::steady_clock::time_point loaded_at;
  RestartPause pause;  ///< before the next start, after one that failed
};
