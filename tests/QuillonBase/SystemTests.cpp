// What the modules ask of the operating system through QuillonBase: descriptors owned and closed,
// writes made whole, failures told, the environment and the executable's path.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/Process.hpp"
#include "QuillonBase/SystemError.hpp"

namespace quillon::base {
namespace {

bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

TEST(Fd, ClosesWhatItOwnsAndHandsItOverOnMoveOrRelease) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  {
    Fd reader(ends[0]);
    Fd held(std::move(reader));
    EXPECT_EQ(reader.get(), -1);
    EXPECT_EQ(held.get(), ends[0]);
    Fd writer(ends[1]);
    const int taken = writer.release();
    EXPECT_EQ(writer.get(), -1);
    writer.reset(taken);
    held = std::move(writer);  // closes the reader, holds the writer
    EXPECT_FALSE(isOpen(ends[0]));
    EXPECT_TRUE(isOpen(ends[1]));
    EXPECT_EQ(held.get(), ends[1]);
  }
  EXPECT_FALSE(isOpen(ends[1]));
}

TEST(WholeWrites, EveryByteGoesOutAndAPeerGoneIsAFailureNotASignal) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  Fd in(ends[0]), out(ends[1]);
  // Far more than a pipe holds: the writer waits on the reader again and again.
  std::string bytes(std::size_t{1} << 20, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 23);
  std::string got;
  std::thread reader([&] {
    char chunk[4096];
    ssize_t n;
    while ((n = ::read(in.get(), chunk, sizeof chunk)) > 0) got.append(chunk, static_cast<std::size_t>(n));
  });
  EXPECT_TRUE(writeAll(out.get(), bytes));
  out.reset();
  reader.join();
  EXPECT_EQ(got, bytes);

  // Without MSG_NOSIGNAL, SIGPIPE would end this test program here.
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  Fd socket(pair[0]);
  ::close(pair[1]);
  EXPECT_FALSE(sendAll(socket.get(), "a line\n"));
  EXPECT_EQ(systemError("send", errno), "send: Broken pipe");
  errno = ENOENT;
  EXPECT_EQ(systemError("open /nowhere"), "open /nowhere: No such file or directory");
}

TEST(Process, ReadsTheEnvironmentNowAndKnowsItsExecutable) {
  constexpr const char* kName = "QUILLON_BASE_TEST_VARIABLE";
  ::unsetenv(kName);
  EXPECT_EQ(environmentVariable(kName), std::nullopt);
  ::setenv(kName, "", 1);
  EXPECT_EQ(environmentVariable(kName), "");  // set to nothing is not unset
  ::setenv(kName, "/home/me", 1);
  EXPECT_EQ(environmentVariable(kName), "/home/me");
  ::unsetenv(kName);

  const std::string self = executablePath();
  EXPECT_TRUE(self.starts_with('/') && self.ends_with("/QuillonBaseTests")) << self;
}

}  // namespace
}  // namespace quillon::base
