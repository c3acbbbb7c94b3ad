#include "QuillonKit/DesktopOpener.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include "QuillonBase/SystemError.hpp"

extern char** environ;

namespace quillon::kit {

std::optional<std::string> DesktopOpener::run(const std::vector<std::string>& arguments) const {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program_.c_str()));
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int fd : {0, 1, 2}) posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
  pid_t child = -1;
  const int started = ::posix_spawnp(&child, program_.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (started != 0) return base::systemError(program_ + " could not be started", started);

  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return base::systemError(program_ + " could not be waited for");
  }
  if (WIFEXITED(status)) {
    if (WEXITSTATUS(status) == 0) return std::nullopt;
    return program_ + " exited " + std::to_string(WEXITSTATUS(status));
  }
  return program_ + " was killed by signal " + std::to_string(WTERMSIG(status));
}

}  // namespace quillon::kit
