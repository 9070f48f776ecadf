#pragma once

#include "util/handle/unique_fd.h"

/// Something that descriptors are watched for. on_event() looks itself at what has happened: it may
/// also be called when nothing has.
class EventHandler {
 public:
  virtual ~EventHandler() = default;
  virtual void on_event() = 0;
};

/// Watches descriptors for something to read, as one descriptor that another loop can watch. Errors
/// of the system's event interface are thrown as std::system_error.
class EventSet {
 public:
  EventSet();

  /// Readable while one of the watched descriptors is.
  int descriptor() const { return epoll.get(); }

  /// Watches `fd` until it is closed. `handler` outlives that.
  void watch(int fd, EventHandler& handler) const;

  /// Waits up to `timeout_ms` (below 0: without end) and calls the handlers of what is ready.
  void handle_events(int timeout_ms) const;

 private:
  UniqueFd epoll;
};
