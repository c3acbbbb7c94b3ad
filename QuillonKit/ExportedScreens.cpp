#include "QuillonKit/ExportedScreens.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/SystemError.hpp"

namespace quillon::kit {

namespace {

using base::Fd;

bool plainWindowName(const std::string& window) {
  if (window.empty() || window.size() > 64) return false;
  for (const char c : window) {
    const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    if (!safe) return false;
  }
  return true;
}

std::string hashed(const std::string& window) {
  std::uint64_t hash = 14695981039346656037ull;  // FNV-1a: stable across runs and builds
  for (const unsigned char c : window) {
    hash ^= c;
    hash *= 1099511628211ull;
  }
  char text[20];
  std::snprintf(text, sizeof text, "h%016llx", static_cast<unsigned long long>(hash));
  return text;
}

}  // namespace

std::optional<ExportedScreens> ExportedScreens::live(const Environment& environment, uid_t user) {
  std::string base = "/tmp";
  if (const auto tmp = environment("TMPDIR"); tmp && !tmp->empty() && tmp->front() == '/') base = *tmp;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  if (base == "/") base.clear();
  return ExportedScreens(base + "/quillon-" + std::to_string(user) + "-screens");
}

std::optional<ExportedScreens> ExportedScreens::live() { return live(processEnvironment(), ::geteuid()); }

std::string ExportedScreens::fileName(std::int64_t moment, const std::string& window) {
  return "moment-" + std::to_string(moment) + "-" + (plainWindowName(window) ? window : hashed(window)) + ".png";
}

ExportedScreens::Written ExportedScreens::write(std::span<const std::uint8_t> png, std::int64_t moment,
                                                const std::string& window) const {
  const std::string refused = folder_ + " is not a plain folder; nothing is written through it";
  const std::string name = fileName(moment, window);
  const std::string path = folder_ + "/" + name;
  const auto couldNotWrite = [&](int error) { return Failure{base::systemError("could not write " + path, error)}; };

  if (::mkdir(folder_.c_str(), 0700) != 0 && errno != EEXIST) return couldNotWrite(errno);
  // The folder is judged by the descriptor we then write through, so it cannot be swapped
  // between the check and the write. O_NOFOLLOW refuses a link in the folder's place.
  Fd folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.get() < 0) {
    if (errno == ELOOP || errno == ENOTDIR) return Failure{refused};
    return couldNotWrite(errno);
  }
  struct stat facts {};
  if (::fstat(folder.get(), &facts) != 0) return couldNotWrite(errno);
  if (!S_ISDIR(facts.st_mode) || facts.st_uid != ::geteuid() || (facts.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    return Failure{refused};

  static std::atomic<unsigned> serial{0};
  const std::string temporary =
      "." + name + "." + std::to_string(::getpid()) + "." + std::to_string(serial.fetch_add(1)) + ".part";
  Fd file(::openat(folder.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (file.get() < 0) return couldNotWrite(errno);
  const auto abandon = [&](int error) {
    ::unlinkat(folder.get(), temporary.c_str(), 0);
    return couldNotWrite(error);
  };
  // The umask may only take bits away; this makes the mode exactly 0600 whatever it is.
  if (::fchmod(file.get(), 0600) != 0) return abandon(errno);
  if (!base::writeAll(file.get(), std::string_view(reinterpret_cast<const char*>(png.data()), png.size())))
    return abandon(errno);
  // The close reports a write that failed late.
  if (::close(file.release()) != 0) return abandon(errno);
  if (::renameat(folder.get(), temporary.c_str(), folder.get(), name.c_str()) != 0) return abandon(errno);
  return path;
}

}  // namespace quillon::kit
