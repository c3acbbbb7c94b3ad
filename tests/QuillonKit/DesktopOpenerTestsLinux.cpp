// The desktop opener run against scripts standing in for xdg-open.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "DoorTestSupport.hpp"
#include "QuillonKit/DesktopOpener.hpp"

namespace quillon::test {
namespace {

// A script that logs each run's arguments to `log`, then exits with `status`.
std::string opener(const TempFolder& temp, int status) {
  const std::string path = temp.path() + "/opener";
  std::ofstream(path) << "#!/bin/sh\necho \"$*\" >> " << temp.path() << "/log\necho chatter\nexit " << status << "\n";
  ::chmod(path.c_str(), 0755);
  return path;
}

std::string log(const TempFolder& temp) {
  std::stringstream text;
  text << std::ifstream(temp.path() + "/log").rdbuf();
  return text.str();
}

TEST(DesktopOpener, RunsXdgOpenOncePerPath) {
  TempFolder temp;
  const kit::DesktopOpener desktop(opener(temp, 0));
  EXPECT_EQ(desktop.open({"/a b.png", "/c.png"}), std::nullopt);
  EXPECT_EQ(log(temp), "/a b.png\n/c.png\n");
  EXPECT_EQ(kit::DesktopOpener().program(), "xdg-open");
}

TEST(DesktopOpener, NamesTheProgramAndItsExitStatusAndStillOpensTheRest) {
  TempFolder temp;
  const std::string program = opener(temp, 3);
  EXPECT_EQ(kit::DesktopOpener(program).open({"/a.png", "/b.png"}), program + " exited 3");
  EXPECT_EQ(log(temp), "/a.png\n/b.png\n");
  EXPECT_EQ(kit::DesktopOpener(temp.path() + "/missing").open({"/a.png"}),
            temp.path() + "/missing could not be started: No such file or directory");
}

}  // namespace
}  // namespace quillon::test
