// What is asked of the system: addresses and time.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "tests/support/checked.h"
#include "util/handle/unique_fd.h"
#include "util/os/local_address.h"
#include "util/os/timer.h"

namespace {

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
  for (const char* text : {"::1", "::ffff:127.0.0.2"}) {
    sockaddr_in6 address{AF_INET6, htons(9), 0, {}, 0};
    inet_pton(AF_INET6, text, &address.sin6_addr);
    const UniqueFd socket(checked(::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    // Sends nothing; and goes past the connect() that this program has in the place of the real
    // one.
    checked(static_cast<int>(syscall(SYS_connect, socket.get(), &address, sizeof address)), text);
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
