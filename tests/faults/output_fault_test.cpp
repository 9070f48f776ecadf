// Outputs that nobody reads, that others share or that are the journal; clients that write into the
// log.

#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "tests/support/checked.h"
#include "tests/support/service_test.h"
#include "util/handle/unique_fd.h"
#include "util/text/messages.h"

namespace fs = std::filesystem;

namespace {

class OutputFaultTest : public ServiceTest {
 protected:
  /// Starts it with both outputs on the descriptor.
  void start_on(int descriptor, const std::string& prepare = "",
                const std::vector<std::string>& readers = {"functions"}) {
    const UniqueFd inherited(checked(dup(descriptor), "dup"));
    const std::string number = std::to_string(inherited.get());
    start_by_shell(prepare + "\nexec >&" + number + " 2>&1 " + number + ">&-");
    start(readers);
  }

  void expect_service() {
    WsClient client = connect();
    for (int number = 0; number < 300; ++number)
      ASSERT_EQ(echo_reply(number), client.ask(echo_request(number)));
    EXPECT_EQ(failure(utf8(messages::kUnrecognised)), client.ask(std::string(9000, 'x')));
    client.close();
    TearDown();
  }
};

/// Writes until there is no more room, without changing the descriptor's mode.
void fill(int descriptor) {
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const UniqueFd own(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  const std::string block(512, '.');
  const auto write_on = [&] {
    return own.get() >= 0 ? write(own.get(), block.data(), block.size())
                          : send(descriptor, block.data(), block.size(), MSG_DONTWAIT);
  };
  // A terminal passes what it holds on to its reader's side a little later, and has room again.
  for (int full = 0; full < 20; ++full) {
    while (write_on() > 0) full = 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::string drain(int descriptor) {
  std::string bytes;
  char block[65536];
  fcntl(descriptor, F_SETFL, O_NONBLOCK);
  for (ssize_t length = 0; (length = read(descriptor, block, sizeof block)) > 0;)
    bytes.append(block, static_cast<size_t>(length));
  return bytes;
}

TEST_F(OutputFaultTest, OutputThatIsUnreadStoppedOrClosedHoldsUpNothingAndIsLeftAsItWas) {
  int pipe_ends[2];
  int socket_ends[2];
  int terminal[2];
  checked(pipe2(pipe_ends, O_CLOEXEC), "pipe2");
  checked(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, socket_ends), "socketpair");
  checked(openpty(&terminal[0], &terminal[1], nullptr, nullptr, nullptr), "openpty");
  for (const int end : terminal) fcntl(end, F_SETFD, FD_CLOEXEC);
  const auto& [master, slave] = terminal;
  for (const auto& [reader, writer] :
       {std::pair(pipe_ends[0], pipe_ends[1]), {socket_ends[0], socket_ends[1]}, {master, slave}}) {
    fill(writer);
    const int flags = fcntl(writer, F_GETFL);
    start_on(writer);
    EXPECT_EQ(flags, fcntl(writer, F_GETFL)) << "whoever shares it would find it changed";
    EXPECT_EQ(echo_reply(1), ask(echo_request(1)));
    std::string seen;
    EXPECT_TRUE(eventually([&, end = reader] {
      seen += drain(end);
      return seen.find(" lines lost") != std::string::npos;
    })) << seen;
    expect_service();
    drain(reader);
    const bool is_terminal = writer == slave;
    if (!is_terminal) close(reader);
    start_on(writer);
    if (is_terminal) tcflow(slave, TCOOFF);  // as Ctrl-S
    expect_service();
    if (is_terminal) close(reader);
    close(writer);
  }
  start_by_shell("exec <&- >&- 2>&-");
  start();
  expect_service();
}

TEST_F(OutputFaultTest, JournalGetsEachLineInUtf8AtItsPriority) {
  int ends[2];
  checked(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), "socketpair");
  const UniqueFd reader(ends[0]);
  const UniqueFd journal(ends[1]);
  struct stat status {};
  checked(fstat(journal.get(), &status), "fstat");
  sections = "[LOG]\ncharset=utf-8\nCharset=gbk\n";
  start_on(journal.get(),
           "export JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" +
               std::to_string(status.st_ino),
           {"functions", "nosuch"});
  ask("张三");
  EXPECT_EQ(0, daemon->stop());
  std::istringstream lines(drain(reader.get()));
  const std::vector<std::string> wanted = {"<5>create daemon ok...", "<6>Server RUNNING .",
                                           "<6>无法识别的指令张三 (6 bytes)",
                                           "<4>./bin/quorvel_service.ini: line 8, \"Charset=gbk\"",
                                           "<3>{\"result\":\"false\",\"errmsg\":\"初始化"};
  std::string all;
  for (std::string line; std::getline(lines, line); all += line + "\n")
    EXPECT_TRUE(line.size() > 3 && line[0] == '<' && line[2] == '>') << line;
  for (const std::string& line : wanted) EXPECT_NE(std::string::npos, all.find(line)) << all;
}

TEST_F(OutputFaultTest, ClientsNeitherForgeNorFloodTheLogAndLeaveNoDataInIt) {
  constexpr size_t kLargestLog = 200000;  // bytes; the requests are ten times that
  start();
  WsClient client = connect();
  const std::string begin = "\nE: forged \x1b[31m\xc2\x9b";
  const std::string request =
      begin + std::string(64 - begin.size() - 1, '.') + "张三110101199003070000";
  for (int count = 0; count < 5000; ++count)
    ASSERT_EQ(failure(utf8(messages::kUnrecognised)), client.ask(request + std::string(400, 'x')));
  ASSERT_TRUE(eventually([this] { return said(" more: "); }));
  const std::string log = daemon->output() + daemon->errors();
  EXPECT_LT(log.size(), kLargestLog);
  EXPECT_NE(std::string::npos, log.find(" E: forged ?[31m?"));
  EXPECT_NE(std::string::npos, log.find(" (" + std::to_string(request.size() + 400) + " bytes)\n"));
  for (const char* never : {"\nE: forged", "\x1b", "\xc2\x9b", "110101199003", "\xd5\xc5"})
    EXPECT_EQ(std::string::npos, log.find(never)) << never;
}

}  // namespace
