#include "Services/dispatcher/reachability.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/text.h"
#include "util/text/messages.h"

namespace {

/// What the check asks of the system, in the linker's place of it.
struct System {
  bool no_socket = false;
  int answering_attempt = 0;  ///< 0: none
  std::vector<unsigned> pauses_us{};
  int attempts = 0;
  std::string peer{};
  int mode_while_connecting = 0;
};
System fake;

}  // namespace

// The linker puts these in the place of the C library's functions.
int real_socket(int domain, int type, int protocol) asm("__real_socket");
int fake_socket(int domain, int type, int protocol) asm("__wrap_socket");
int fake_socket(int domain, int type, int protocol) {
  return fake.no_socket ? -1 : real_socket(domain, type, protocol);
}
int fake_connect(int fd, const sockaddr* address, socklen_t size) asm("__wrap_connect");
int fake_connect(int fd, const sockaddr* address, socklen_t /*size*/) {
  const auto* peer = reinterpret_cast<const sockaddr_in*>(address);
  fake.peer = std::string(inet_ntoa(peer->sin_addr)) + ":" + std::to_string(ntohs(peer->sin_port));
  fake.mode_while_connecting = fcntl(fd, F_GETFL);
  return ++fake.attempts == fake.answering_attempt ? 0 : -1;
}
int fake_usleep(useconds_t pause) asm("__wrap_usleep");
int fake_usleep(useconds_t pause) {
  fake.pauses_us.push_back(pause);
  return 0;
}

namespace {

TEST(Reachability, TriesFiveTimesInFourMillisecondsAndStopsAtAnAnswer) {
  for (int answering = 0; answering <= 5; ++answering) {
    fake = {false, answering};
    unsigned char reason[200] = {};
    EXPECT_EQ(socket_conn("10.0.0.1", 65536 + 80, reason), answering > 0);
    EXPECT_EQ(fake.peer, "10.0.0.1:80");
    const int attempts = answering > 0 ? answering : 5;
    EXPECT_EQ(fake.attempts, attempts);
    std::vector<unsigned> pauses_us = {250, 500, 1000, 2000};
    pauses_us.resize(static_cast<size_t>(attempts) - 1);
    EXPECT_EQ(fake.pauses_us, pauses_us);
    EXPECT_NE(fake.mode_while_connecting & O_NONBLOCK, 0);
    EXPECT_EQ(utf8(reinterpret_cast<char*>(reason)),
              answering > 0 ? "" : "请检网络-连接10.0.0.1:65616失败！");
  }
  fake = {true};
  unsigned char reason[200] = {};
  EXPECT_FALSE(socket_conn("10.0.0.1", 80, reason));
  EXPECT_STREQ(reinterpret_cast<char*>(reason), messages::kNoSocket);
  fake = {};  // other tests of this program need sockets
}

}  // namespace
