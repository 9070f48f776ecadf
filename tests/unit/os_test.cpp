// What is asked of the system: addresses and time.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>

#include "tests/support/checked.h"
#include "util/handle/unique_fd.h"
#include "util/os/local_address.h"
#include "util/os/timer.h"

namespace {

/// A socket for datagrams, none of which is sent, to an address of the machine.
template <typename Address>
UniqueFd connected(int family, const Address& address) {
  UniqueFd socket(checked(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
  // Past the connect() that this program has in the place of the C library's.
  checked(static_cast<int>(syscall(SYS_connect, socket.get(), &address, sizeof address)),
          "connect");
  return socket;
}

TEST(LocalAddress, AppendsWholeAddressesWithinTheBuffer) {
  char all[kAddressListSize] = "x";
  ASSERT_EQ(get_localip(all), 0);
  EXPECT_EQ(all[0], 'x');
  EXPECT_NE(std::string(all).find("127.0.0.1;"), std::string::npos);
  char small[8] = "";
  EXPECT_EQ(get_localip(small, sizeof small), -1);
  EXPECT_STREQ(small, "");
}

TEST(LocalAddress, EachLoopbackAddressIsThisMachine) {
  for (const char* text : {"127.0.0.1", "127.0.0.2", "::1", "::ffff:127.0.0.2"}) {
    sockaddr_in ipv4{AF_INET, htons(9), {}, {}};
    sockaddr_in6 ipv6{AF_INET6, htons(9), 0, {}, 0};
    const bool is_ipv4 = inet_pton(AF_INET, text, &ipv4.sin_addr) == 1;
    if (!is_ipv4) inet_pton(AF_INET6, text, &ipv6.sin6_addr);
    const UniqueFd socket = is_ipv4 ? connected(AF_INET, ipv4) : connected(AF_INET6, ipv6);
    EXPECT_TRUE(peer_is_on_loopback(socket.get())) << text;
  }
}

TEST(Timer, EndsAtTheTimeThatWasSetLast) {
  using std::chrono::milliseconds;
  Timer timer;
  const auto expires_after = [&](milliseconds time) {
    std::this_thread::sleep_for(time);
    return timer.has_expired();
  };
  timer.start(std::chrono::hours(1));
  timer.start(milliseconds(1));
  EXPECT_TRUE(expires_after(milliseconds(2)));
  EXPECT_FALSE(timer.has_expired()) << "it tells so once";
  timer.start(milliseconds(1));
  timer.stop();
  EXPECT_FALSE(expires_after(milliseconds(2)));
  timer.start(milliseconds(1));
  timer.start(std::chrono::hours(1));
  EXPECT_FALSE(expires_after(milliseconds(2)));
}

}  // namespace
