#include "tests/support/own_network.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>

#include "tests/support/checked.h"
#include "tests/support/files.h"

namespace {

void set_up(const char* interface, unsigned long what, ifreq request) {
  const int control = checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
  std::strncpy(request.ifr_name, interface, IFNAMSIZ - 1);
  const int result = ioctl(control, what, &request);
  close(control);
  checked(result, interface);
}

}  // namespace

void enter_own_network(int further) {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  const bool is_root = user == "0";
  checked(unshare(CLONE_NEWNET | further | (is_root ? 0 : CLONE_NEWUSER)), "unshare");
  if (!is_root) {
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + user + " 1");
    write_file("/proc/self/gid_map", "0 " + group + " 1");
  }
  ifreq flags = {};
  flags.ifr_flags = IFF_UP | IFF_RUNNING;
  set_up("lo", SIOCSIFFLAGS, flags);
}

void add_outside_address(const std::string& address) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  inet_pton(AF_INET, address.c_str(), &place.sin_addr);
  ifreq request = {};
  std::memcpy(&request.ifr_addr, &place, sizeof place);
  set_up("lo:1", SIOCSIFADDR, request);
}
