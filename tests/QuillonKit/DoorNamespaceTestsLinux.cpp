// The folder gateways listen in, and the checks that keep an impostor out of it.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "DoorTestSupport.hpp"
#include "QuillonKit/DoorNamespace.hpp"

namespace quillon::kit {
namespace {

using test::TempFolder;

TEST(DoorNamespace, FolderIsUnderAnAbsoluteRuntimeDirElseTheUserRuntimeFolderElseInTmp) {
  TempFolder roots;  // stands in for /run/user
  const std::string none = roots.path() + "/none";
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({{"XDG_RUNTIME_DIR", "/run/user/1000"}}), 1000, none), "/run/user/1000/quillon");
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({{"XDG_RUNTIME_DIR", "/run/user/1000/"}}), 1000, none), "/run/user/1000/quillon");
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({{"XDG_RUNTIME_DIR", "run/user"}}), 1000, none), "/tmp/quillon-1000");
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({{"XDG_RUNTIME_DIR", ""}}), 42, none), "/tmp/quillon-42");
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({}), 0, none), "/tmp/quillon-0");

  // Without XDG_RUNTIME_DIR, the folder the login manager made for the user: what a gateway
  // started from a login shell uses, found by a bridge whose agent cleaned the environment.
  const uid_t me = ::geteuid();
  const std::string mine = roots.path() + "/" + std::to_string(me);
  ASSERT_EQ(::mkdir(mine.c_str(), 0700), 0);
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({{"HOME", "/root"}}), me, roots.path()), mine + "/quillon");
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({{"XDG_RUNTIME_DIR", "/elsewhere"}}), me, roots.path()), "/elsewhere/quillon");

  // One that others may enter or list, a link, or another user's may be a trap: not used.
  const std::string tmp = "/tmp/quillon-" + std::to_string(me);
  ASSERT_EQ(::chmod(mine.c_str(), 0755), 0);
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({}), me, roots.path()), tmp);
  ASSERT_EQ(::chmod(mine.c_str(), 0710), 0);
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({}), me, roots.path()), tmp);
  ASSERT_EQ(::chmod(mine.c_str(), 0700), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(mine.c_str(), 65534, 65534), 0);
    EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({}), me, roots.path()), tmp);
    ASSERT_EQ(::chown(mine.c_str(), me, 0), 0);
  }
  const std::string real = roots.path() + "/real";
  ASSERT_EQ(::rename(mine.c_str(), real.c_str()), 0);
  std::filesystem::create_directory_symlink(real, mine);
  EXPECT_EQ(DoorNamespace::folder(fixedEnvironment({}), me, roots.path()), tmp);

  EXPECT_TRUE(DoorNamespace::isPrivateRuntimeFolder({.isFolder = true, .owner = 1000, .mode = 0700}, 1000));
  EXPECT_FALSE(DoorNamespace::isPrivateRuntimeFolder({.isFolder = true, .owner = 1001, .mode = 0700}, 1000));
  EXPECT_FALSE(DoorNamespace::isPrivateRuntimeFolder({.isFolder = true, .owner = 1000, .mode = 0701}, 1000));
  EXPECT_FALSE(DoorNamespace::isPrivateRuntimeFolder({.isLink = true, .owner = 1000, .mode = 0700}, 1000));
  EXPECT_FALSE(DoorNamespace::isPrivateRuntimeFolder({.isFolder = false, .owner = 1000, .mode = 0700}, 1000));
}

TEST(DoorNamespace, OnlyAPrivateFolderOfThisUserMayHoldTheDoor) {
  const DoorNamespace::FolderFacts mine{.isLink = false, .isFolder = true, .owner = 1000, .mode = 0700};
  EXPECT_EQ(DoorNamespace::problem("/f", mine, 1000), std::nullopt);
  EXPECT_EQ(DoorNamespace::problem("/f", {.isFolder = true, .owner = 1000, .mode = 0755}, 1000), std::nullopt);

  EXPECT_EQ(DoorNamespace::problem("/f", {.isFolder = true, .owner = 0, .mode = 0700}, 1000), "/f belongs to uid 0, not 1000");
  EXPECT_EQ(DoorNamespace::problem("/f", {.isFolder = true, .owner = 1000, .mode = 0770}, 1000),
            "/f is writable by others (mode 0770)");
  EXPECT_EQ(DoorNamespace::problem("/f", {.isFolder = true, .owner = 1000, .mode = 01777}, 1000),
            "/f is writable by others (mode 1777)");
  EXPECT_EQ(DoorNamespace::problem("/f", {.isLink = true, .owner = 1000, .mode = 0777}, 1000), "/f is a link, not a folder");
  EXPECT_EQ(DoorNamespace::problem("/f", {.isFolder = false, .owner = 1000, .mode = 0600}, 1000), "/f is not a folder");
}

TEST(DoorNamespace, CreateMakesAPrivateFolderAndCheckSeesLinksAndModes) {
  TempFolder temp;
  const std::string folder = temp.path() + "/quillon";
  EXPECT_EQ(DoorNamespace::check(folder), "lstat " + folder + ": No such file or directory");
  EXPECT_EQ(DoorNamespace::create(folder), std::nullopt);
  struct stat info {};
  ASSERT_EQ(::stat(folder.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_EQ(DoorNamespace::create(folder), std::nullopt);  // already there

  const std::string link = temp.path() + "/link";
  std::filesystem::create_directory_symlink(folder, link);
  EXPECT_EQ(DoorNamespace::check(link), link + " is a link, not a folder");

  ::chmod(folder.c_str(), 0722);
  EXPECT_EQ(DoorNamespace::check(folder), folder + " is writable by others (mode 0722)");
}

TEST(DoorNamespace, AServiceIsOneFileOfTheFolder) {
  EXPECT_EQ(DoorNamespace::servicePath("/run/q", "example.fernhollow.quillon.gateway"), "/run/q/example.fernhollow.quillon.gateway");
  for (const std::string& name : std::vector<std::string>{"", ".", "..", "example.fernhollow.quillon.test./../x", std::string("a\0b", 3)})
    EXPECT_EQ(DoorNamespace::servicePath("/run/q", name), std::nullopt) << name;
  EXPECT_EQ(DoorNamespace::servicePath("/run/q", std::string(200, 'x')), std::nullopt);
}

}  // namespace
}  // namespace quillon::kit
