// The client's identity: its profile, and the private files it writes.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "QuillonWire/ClientProfile.hpp"
#include "QuillonWire/ClientStoreMode.hpp"

namespace quillon::wire {
namespace {

namespace fs = std::filesystem;

TEST(ClientProfile, BuildsOnlyFromTheExactRawValues) {
  EXPECT_EQ(ClientProfile::fromRawValue("production"), ClientProfile(ClientProfile::production));
  EXPECT_EQ(ClientProfile::fromRawValue("dev"), ClientProfile(ClientProfile::dev));
  for (const char* raw : {"Production", "DEV", " dev", "dev\n", "development", ""})
    EXPECT_FALSE(ClientProfile::fromRawValue(raw)) << raw;
  EXPECT_TRUE(ClientProfile::current().isProduction());
}

class ClientStoreModeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/quillon-store-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    folder_ = pattern;
    // The widest umask: the file's mode must not depend on it.
    savedUmask_ = ::umask(0);
  }
  void TearDown() override {
    ::umask(savedUmask_);
    fs::remove_all(folder_);
  }

  static unsigned modeOf(const fs::path& path) {
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info.st_mode & 07777;
  }
  static std::string contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static std::vector<std::uint8_t> bytes(std::string_view text) { return {text.begin(), text.end()}; }
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  fs::path folder_;
  mode_t savedUmask_ = 0;
};

TEST_F(ClientStoreModeTest, WrittenFileIsReadableByItsOwnerOnly) {
  const fs::path file = folder_ / "key";
  ASSERT_EQ(ClientStoreMode::write(bytes("secret"), file.string()), std::nullopt);
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(contents(file), "secret");
  EXPECT_EQ(entries(), std::vector<std::string>{"key"});
}

TEST_F(ClientStoreModeTest, ReplacesAWiderFileAndNeverWritesThroughALink) {
  const fs::path file = folder_ / "key";
  { std::ofstream(file) << "old and longer"; }
  fs::permissions(file, fs::perms::all);
  ASSERT_EQ(ClientStoreMode::write(std::string_view("new"), file.string()), std::nullopt);
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_EQ(contents(file), "new");

  const fs::path elsewhere = folder_ / "elsewhere";
  { std::ofstream(elsewhere) << "untouched"; }
  const fs::path link = folder_ / "link";
  fs::create_symlink(elsewhere, link);
  ASSERT_EQ(ClientStoreMode::write(bytes("private"), link.string()), std::nullopt);
  EXPECT_FALSE(fs::is_symlink(link));
  EXPECT_EQ(contents(link), "private");
  EXPECT_EQ(contents(elsewhere), "untouched");
}

TEST_F(ClientStoreModeTest, FailureNamesTheFileAndLeavesNothingBehind) {
  const fs::path file = folder_ / "missing" / "key";
  EXPECT_EQ(ClientStoreMode::write(bytes("x"), file.string()), "write " + file.string() + ": No such file or directory");

  fs::create_directory(folder_ / "taken");
  EXPECT_NE(ClientStoreMode::write(bytes("x"), (folder_ / "taken").string()), std::nullopt);
  EXPECT_EQ(entries(), std::vector<std::string>{"taken"});
}

}  // namespace
}  // namespace quillon::wire
