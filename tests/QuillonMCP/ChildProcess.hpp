// A child process with its standard input, output and error on pipes, for driving the built
// executables end to end.
#pragma once

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

extern char** environ;

namespace quillon::test {

class ChildProcess {
 public:
  // Whether the child starts from this process's environment, or from `extraEnvironment` alone
  // (as agents that clean the environment start the bridge).
  enum class Inherit { everything, nothing };

  // Starts `path` with `arguments`, and the current environment plus `extraEnvironment`.
  explicit ChildProcess(const std::string& path, const std::map<std::string, std::string>& extraEnvironment = {},
                        Inherit inherit = Inherit::everything, const std::vector<std::string>& arguments = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void write(const std::string& bytes);
  void closeInput();
  void closeOutput();
  // One line of standard output without its line feed; empty with `ok` false at end of output.
  std::string readLine(bool* ok = nullptr, int timeoutMs = 10000);
  // Everything left on standard output, then on standard error, until both close.
  std::string readRemainingOutput();
  std::string readAllErrors();
  // Waits for the exit; the raw wait status.
  int wait();

  pid_t pid() const { return pid_; }
  // The read end of the child's standard output, to see how much waits in the pipe.
  int outputFd() const { return out_; }

 private:
  pid_t pid_ = -1;
  int in_ = -1, out_ = -1, err_ = -1;
  std::string buffered_;
};

}  // namespace quillon::test
