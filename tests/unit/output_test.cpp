#include "util/log/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/checked.h"
#include "util/handle/unique_fd.h"

namespace {

std::string take(int pipe_end) {
  std::string bytes(65536, '\0');
  const ssize_t length = read(pipe_end, bytes.data(), bytes.size());
  bytes.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return bytes;
}

TEST(Output, DropsWhatFindsNoRoomInAPipeOfAnotherUser) {
  constexpr int kRoom = 4096;
  int ends[2];
  checked(pipe2(ends, O_CLOEXEC), "pipe2");
  const UniqueFd reader(ends[0]);
  const UniqueFd writer(ends[1]);
  fcntl(writer.get(), F_SETPIPE_SZ, kRoom);
  fcntl(reader.get(), F_SETFL, O_NONBLOCK);
  Output output(writer.get());
  // Nobody but root can open a pipe of no rights.
  checked(fchmod(writer.get(), 0), "fchmod");
  const uid_t user = geteuid();
  if (user == 0) checked(seteuid(65534), "seteuid");
  output.settle();
  if (user == 0) checked(seteuid(0), "seteuid");
  EXPECT_EQ(fcntl(writer.get(), F_GETFL) & O_NONBLOCK, 0);

  const std::string line = std::string(std::size_t{3} * kRoom, 'x') + "\n";
  output.write(line);  // begins to block in the middle
  for (int count = 0; count < 5; ++count) output.write("lost\n");
  std::string seen = take(reader.get());
  EXPECT_EQ(seen.size(), kRoom);
  for (int count = 0; count < 5; ++count) {
    output.flush();
    seen += take(reader.get());
  }
  EXPECT_EQ(seen, line + "5 lines lost\n");
}

}  // namespace
