#include "server/service_loop.h"

#include <libwebsockets.h>

#include "Services/dispatcher/reachability.h"
#include "server/request_channel.h"
#include "util/log/log.h"

namespace {

/// Upper bound of the time that a SIGINT goes unnoticed when it comes between the loop's look at
/// the flag and the library's wait.
constexpr lws_usec_t kFlagCheckUs = LWS_US_PER_SEC;

/// Wakes the service loop now and then, so that it looks at the interrupted flag, the log says what
/// it left out, and connections that have broken off end.
struct FlagTimer {
  lws_sorted_usec_list_t entry{};
  lws_context* context;
  RequestChannel* channel;

  FlagTimer(lws_context* served, RequestChannel& served_channel)
      : context(served), channel(&served_channel) {
    arm(&entry);
  }
  ~FlagTimer() { lws_sul_cancel(&entry); }
  FlagTimer(const FlagTimer&) = delete;
  FlagTimer& operator=(const FlagTimer&) = delete;

  static void arm(lws_sorted_usec_list_t* entry) {
    auto* timer = lws_container_of(entry, FlagTimer, entry);
    flush_log();
    timer->channel->end_dead_connections();
    lws_sul_schedule(timer->context, 0, entry, arm, kFlagCheckUs);
  }
};

}  // namespace

void serve(lws_context* context, RequestChannel& channel,
           const volatile std::sig_atomic_t& interrupted) {
  const FlagTimer timer(context, channel);
  int result = 0;
  while (result >= 0 && interrupted == 0) {
    begin_check_pass();
    result = lws_service(context, 0);
  }
}
