// DesktopOpener: shows files on the user's desktop with the system's opener, "/usr/bin/open" on
// macOS (every path in one run) or "xdg-open" on Linux (it takes one path a run, so one run per
// path, in order).
//
// The opener never shares the bridge's standard input, output or error: whatever it prints would
// land in the protocol stream, so all three are /dev/null. `open` waits for each run to end and
// answers nothing when every run exited 0, else the text of the first failure, naming the program
// as it was given ("xdg-open exited 3"). Never throws; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillon::kit {

class DesktopOpener {
 public:
  // The platform's opener.
  DesktopOpener();
  // Another program in its place, found on PATH like the platform's (tests use a script).
  explicit DesktopOpener(std::string program) : program_(std::move(program)) {}

  std::optional<std::string> open(const std::vector<std::string>& paths) const;

  const std::string& program() const { return program_; }

 private:
  // One run of the program with these arguments; the failure's text, if it failed.
  std::optional<std::string> run(const std::vector<std::string>& arguments) const;

  std::string program_;
};

}  // namespace quillon::kit
