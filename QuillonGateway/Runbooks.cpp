#include "QuillonGateway/Runbooks.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "QuillonBase/SystemError.hpp"

namespace quillon::gateway {

std::vector<std::string> placeMissingRunbooks(const std::string& root, std::vector<std::string>& problems) {
  std::vector<std::string> placed;
  std::error_code error;
  std::filesystem::create_directories(root, error);
  if (error) {
    problems.push_back("cannot make the runbooks folder " + root + ": " + error.message());
    return placed;
  }
  for (const auto& [name, text] : shippedRunbooks()) {
    const std::string path = root + "/" + std::string(name);
    // O_EXCL: a runbook already there, the user's own edit or ours, is never replaced.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
      if (errno != EEXIST) problems.push_back(base::systemError("cannot write " + path));
      continue;
    }
    const bool whole = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    if (whole) {
      placed.emplace_back(name);
    } else {
      ::unlink(path.c_str());  // half a runbook would be worse than none: the next start tries again
      problems.push_back("cannot write " + path);
    }
  }
  return placed;
}

}  // namespace quillon::gateway
