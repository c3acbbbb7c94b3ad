// The exported-screens folder on a real file system: what is written, with which modes, and the
// folders that are refused with nothing written through them.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "DoorTestSupport.hpp"
#include "QuillonKit/ExportedScreens.hpp"

namespace quillon::test {
namespace {

using kit::ExportedScreens;
namespace fs = std::filesystem;

const std::vector<std::uint8_t> kFirst{1, 2, 3}, kSecond{9, 8, 7, 6};

std::vector<std::uint8_t> contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

mode_t modeOf(const std::string& path) {
  struct stat info {};
  ::lstat(path.c_str(), &info);
  return info.st_mode & 07777;
}

std::vector<std::string> entries(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
  return names;
}

TEST(ExportedScreens, LivesInTMPDIRElseTmpUnderTheUsersStem) {
  EXPECT_EQ(ExportedScreens::live(kit::fixedEnvironment({{"TMPDIR", "/var/tmp/me/"}}), 1000)->folder(),
            "/var/tmp/me/quillon-1000-screens");
  EXPECT_EQ(ExportedScreens::live(kit::fixedEnvironment({{"TMPDIR", "relative"}}), 7)->folder(), "/tmp/quillon-7-screens");
  EXPECT_EQ(ExportedScreens::live(kit::fixedEnvironment({}), 7)->folder(), "/tmp/quillon-7-screens");
}

TEST(ExportedScreens, WritesAPrivateFileInAPrivateFolderAndReplacesItWhole) {
  TempFolder temp;
  const ExportedScreens screens(temp.path() + "/quillon-screens");
  const auto first = screens.write(kFirst, 42, "w1");
  ASSERT_EQ(std::get<std::string>(first), temp.path() + "/quillon-screens/moment-42-w1.png");
  EXPECT_EQ(modeOf(screens.folder()), 0700u);
  EXPECT_EQ(modeOf(std::get<std::string>(first)), 0600u);

  const auto second = screens.write(kSecond, 42, "w1");
  EXPECT_EQ(second, first);
  EXPECT_EQ(contents(std::get<std::string>(second)), kSecond);
  EXPECT_EQ(entries(screens.folder()), std::vector<std::string>{"moment-42-w1.png"});  // no temporary left
}

TEST(ExportedScreens, HostileWindowNamesStayInTheFolderAndApart) {
  EXPECT_EQ(ExportedScreens::fileName(5, "w12"), "moment-5-w12.png");
  const std::string escape = ExportedScreens::fileName(5, "../../etc/passwd");
  EXPECT_EQ(escape.find('/'), std::string::npos);
  EXPECT_NE(ExportedScreens::fileName(5, "a b"), ExportedScreens::fileName(5, "a_b"));
  EXPECT_NE(ExportedScreens::fileName(5, ""), ExportedScreens::fileName(6, ""));
}

class RefusedFolder : public ::testing::Test {
 protected:
  // Refused, and nothing written into `behind`, the real folder when there is one.
  void expectRefused(const std::string& folder, const std::string& behind = "") {
    const auto written = ExportedScreens(folder).write(kFirst, 1, "w1");
    ASSERT_TRUE(std::holds_alternative<ExportedScreens::Failure>(written));
    EXPECT_EQ(std::get<ExportedScreens::Failure>(written).message,
              folder + " is not a plain folder; nothing is written through it");
    EXPECT_TRUE(behind.empty() || entries(behind).empty()) << behind;
  }
  TempFolder temp;
};

TEST_F(RefusedFolder, ALinkEvenToAGoodFolderAFolderOthersCanWriteAndAFile) {
  const std::string target = temp.path() + "/target", link = temp.path() + "/screens";
  ASSERT_EQ(::mkdir(target.c_str(), 0700), 0);
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  expectRefused(link, target);
  const std::string open = temp.path() + "/open", file = temp.path() + "/file";
  ASSERT_EQ(::mkdir(open.c_str(), 0700), 0);
  ASSERT_EQ(::chmod(open.c_str(), 0777), 0);
  expectRefused(open, open);
  std::ofstream(file) << "x";
  expectRefused(file);
}

TEST_F(RefusedFolder, SomeoneElses) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a folder to another user needs root";
  const std::string theirs = temp.path() + "/theirs";
  ASSERT_EQ(::mkdir(theirs.c_str(), 0700), 0);
  ASSERT_EQ(::chown(theirs.c_str(), 65534, 65534), 0);
  expectRefused(theirs, theirs);
}

}  // namespace
}  // namespace quillon::test
