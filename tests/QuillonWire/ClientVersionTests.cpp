#include "QuillonWire/ClientVersion.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using quillon::wire::ClientVersion;
namespace fs = std::filesystem;

namespace {

TEST(ClientVersion, ShapedAcceptsDottedDigitRunsOnly) {
  EXPECT_EQ(ClientVersion::shaped("1.4.2"), "1.4.2");
  EXPECT_EQ(ClientVersion::shaped("12"), "12");
  EXPECT_EQ(ClientVersion::shaped(" 2.1.0\n"), "2.1.0");
  for (const char* bad : {"", " \n", "1..2", "1.4-beta", "v1", ".1", "1.", "2.1.0-rc", "1 2"})
    EXPECT_FALSE(ClientVersion::shaped(bad)) << bad;
}

class ClientVersionFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    root = fs::temp_directory_path() / ("quillon-version-" + std::to_string(::getpid()) + "-" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root);
    fs::create_directories(root / "a" / "b" / "c" / "d" / "e");
  }
  void TearDown() override { fs::remove_all(root); }
  void write(const fs::path& path, const std::string& text) { std::ofstream(path) << text; }
  fs::path root;
};

TEST_F(ClientVersionFiles, FindsVersionBesideOrAboveTheExecutable) {
  const auto exe = (root / "a" / "b" / "bin" / "quillon-mcp").string();
  fs::create_directories(root / "a" / "b" / "bin");
  EXPECT_EQ(ClientVersion::resolve(exe), "0");
  write(root / "a" / "VERSION", "2.1.0\n");
  EXPECT_EQ(ClientVersion::resolve(exe), "2.1.0");
  write(root / "a" / "b" / "bin" / "VERSION", "2.1.0-rc");  // misshapen: the search goes on upward
  EXPECT_EQ(ClientVersion::resolve(exe), "2.1.0");
  write(root / "a" / "b" / "bin" / "VERSION", "3.0");
  EXPECT_EQ(ClientVersion::resolve(exe), "3.0");
  EXPECT_EQ(ClientVersion::resolve(""), "0");
}

TEST_F(ClientVersionFiles, SearchStopsAFewLevelsUp) {
  write(root / "VERSION", "9.9");
  EXPECT_EQ(ClientVersion::resolve((root / "a" / "b" / "c" / "d" / "e" / "exe").string()), "0");
  EXPECT_EQ(ClientVersion::resolve((root / "a" / "b" / "c" / "exe").string()), "9.9");
}

TEST_F(ClientVersionFiles, BundleInfoPlistComesFirst) {
  fs::create_directories(root / "Q.app" / "Contents" / "MacOS");
  write(root / "Q.app" / "Contents" / "Info.plist",
        "<plist><dict><key>CFBundleShortVersionString</key>\n\t<string>4.2</string></dict></plist>");
  write(root / "Q.app" / "Contents" / "MacOS" / "VERSION", "1.0");
  EXPECT_EQ(ClientVersion::resolve((root / "Q.app" / "Contents" / "MacOS" / "quillon-mcp").string()), "4.2");
}

}  // namespace
