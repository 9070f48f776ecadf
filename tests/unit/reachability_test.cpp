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

// What the check asks of the system, in the linker's place of it.
bool no_socket = false;
int answering_attempt = 0;  // 0: none
std::vector<std::string> asked;

}  // namespace

// The linker puts these in the place of the C library's functions.
int real_socket(int domain, int type, int protocol) asm("__real_socket");
int fake_socket(int domain, int type, int protocol) asm("__wrap_socket");
int fake_socket(int domain, int type, int protocol) {
  return no_socket ? -1 : real_socket(domain, type, protocol);
}
int fake_connect(int fd, const sockaddr* address, socklen_t size) asm("__wrap_connect");
int fake_connect(int fd, const sockaddr* address, socklen_t /*size*/) {
  const auto* peer = reinterpret_cast<const sockaddr_in*>(address);
  asked.push_back(inet_ntoa(peer->sin_addr) + (":" + std::to_string(ntohs(peer->sin_port))));
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  return --answering_attempt == 0 ? 0 : -1;
}
int fake_usleep(useconds_t pause) asm("__wrap_usleep");
int fake_usleep(useconds_t pause) {
  asked.push_back(std::to_string(pause));
  return 0;
}

namespace {

TEST(Reachability, TriesFiveTimesInFourMillisecondsAndStopsAtAnAnswer) {
  const std::string peer = "10.0.0.1:80";
  const std::vector<std::string> all = {peer, "250", peer, "500", peer, "1000", peer, "2000", peer};
  for (size_t answering = 0; answering <= 5; ++answering) {
    asked.clear();
    answering_attempt = static_cast<int>(answering);
    unsigned char reason[200] = {};
    EXPECT_EQ(socket_conn("10.0.0.1", 65536 + 80, reason), answering > 0);
    const auto steps = static_cast<std::ptrdiff_t>(answering > 0 ? 2 * answering - 1 : all.size());
    EXPECT_EQ(asked, std::vector<std::string>(all.begin(), all.begin() + steps));
    EXPECT_EQ(utf8(reinterpret_cast<char*>(reason)),
              answering > 0 ? "" : "请检网络-连接10.0.0.1:65616失败！");
  }
  no_socket = true;
  unsigned char reason[200] = {};
  EXPECT_FALSE(socket_conn("10.0.0.1", 80, reason));
  EXPECT_EQ(reinterpret_cast<char*>(reason), messages::kNoSocket.bytes());
  no_socket = false;  // other tests of this program need sockets
}

}  // namespace
