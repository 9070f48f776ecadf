#include "util/os/event_set.h"

#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace {

[[noreturn]] void fail(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

}  // namespace

EventSet::EventSet() : epoll(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll.get() < 0) fail("epoll_create1");
}

void EventSet::watch(int fd, EventHandler& handler) const {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = &handler;
  if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) fail("epoll_ctl");
}

void EventSet::handle_events(int timeout_ms) const {
  // One at a time: a handler may close what another event of the same wait was about.
  epoll_event event{};
  for (int wait_ms = timeout_ms; epoll_wait(epoll.get(), &event, 1, wait_ms) == 1; wait_ms = 0)
    static_cast<EventHandler*>(event.data.ptr)->on_event();
}
