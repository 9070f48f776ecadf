#include "bench/soak/probe_target.h"

#include <sys/socket.h>
#include <unistd.h>

ProbeTarget::ProbeTarget()
    : thread([this] {
        for (int peer = 0;
             (peer = accept4(listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
          close(peer);
      }) {}

ProbeTarget::~ProbeTarget() {
  shutdown(listener.descriptor(), SHUT_RDWR);  // ends the accepting
  thread.join();
}
