#include "tests/support/own_network.h"

#include <sched.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/support/checked.h"
#include "tests/support/child_process.h"
#include "tests/support/files.h"

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
  const ProgramResult up = run_program({"ip", "link", "set", "lo", "up"});
  if (up.status != 0) throw std::runtime_error("ip: " + up.errors);
}
