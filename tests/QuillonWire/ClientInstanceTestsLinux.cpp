#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "QuillonWire/ClientInstance.hpp"

using quillon::wire::ClientInstance;

namespace {

// One environment variable set (or removed) for the length of a test.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) previous_ = old;
    if (value != nullptr)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~ScopedVariable() {
    if (previous_)
      setenv(name_, previous_->c_str(), 1);
    else
      unsetenv(name_);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> previous_;
};

TEST(RunbooksRoot, XdgDataHomeWhenAbsoluteElseTheHomeDefault) {
  ScopedVariable home("HOME", "/home/ada");
  {
    ScopedVariable data("XDG_DATA_HOME", "/data/ada/");
    EXPECT_EQ(ClientInstance::runbooksRootExpanded(), "/data/ada/quillon/runbooks");
  }
  {
    ScopedVariable data("XDG_DATA_HOME", "relative/data");  // ignored, as every XDG reader does
    EXPECT_EQ(ClientInstance::runbooksRootExpanded(), "/home/ada/.local/share/quillon/runbooks");
  }
  ScopedVariable data("XDG_DATA_HOME", nullptr);
  EXPECT_EQ(ClientInstance::runbooksRootExpanded(), "/home/ada/.local/share/quillon/runbooks");
}

TEST(RunbooksRoot, AlwaysAbsoluteWithoutAUsableHome) {
  ScopedVariable data("XDG_DATA_HOME", nullptr);
  ScopedVariable home("HOME", "~");
  const std::string root = ClientInstance::runbooksRootExpanded();
  EXPECT_EQ(root.front(), '/');
  EXPECT_EQ(root.find('~'), std::string::npos);
  EXPECT_TRUE(root.ends_with("/.local/share/quillon/runbooks")) << root;
}

}  // namespace
