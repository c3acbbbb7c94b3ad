#include "QuillonKit/DoorNamespace.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "QuillonBase/SystemError.hpp"

namespace quillon::kit {

namespace {

std::string octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

std::optional<DoorNamespace::FolderFacts> factsOf(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return std::nullopt;
  return DoorNamespace::FolderFacts{.isLink = S_ISLNK(info.st_mode),
                                    .isFolder = S_ISDIR(info.st_mode),
                                    .owner = info.st_uid,
                                    .mode = static_cast<mode_t>(info.st_mode & 07777)};
}

}  // namespace

std::string DoorNamespace::folder(const Environment& environment, uid_t user, const std::string& runtimeRoot) {
  const auto runtime = environment("XDG_RUNTIME_DIR");
  if (runtime && !runtime->empty() && runtime->front() == '/') {
    std::string base = *runtime;
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    return (base == "/" ? "" : base) + "/quillon";
  }
  const std::string userRuntime = runtimeRoot + "/" + std::to_string(user);
  if (const auto facts = factsOf(userRuntime); facts && isPrivateRuntimeFolder(*facts, user))
    return userRuntime + "/quillon";
  return "/tmp/quillon-" + std::to_string(user);
}

bool DoorNamespace::isPrivateRuntimeFolder(const FolderFacts& facts, uid_t user) {
  return facts.isFolder && !facts.isLink && facts.owner == user && (facts.mode & 077) == 0;
}

std::string DoorNamespace::folder() { return folder(processEnvironment(), ::geteuid()); }

std::optional<std::string> DoorNamespace::problem(const std::string& folder, const FolderFacts& facts, uid_t user) {
  if (facts.isLink) return folder + " is a link, not a folder";
  if (!facts.isFolder) return folder + " is not a folder";
  if (facts.owner != user)
    return folder + " belongs to uid " + std::to_string(facts.owner) + ", not " + std::to_string(user);
  if ((facts.mode & (S_IWGRP | S_IWOTH)) != 0) return folder + " is writable by others (mode " + octal(facts.mode) + ")";
  return std::nullopt;
}

std::optional<std::string> DoorNamespace::check(const std::string& folder) {
  const auto facts = factsOf(folder);
  if (!facts) return base::systemError("lstat " + folder);
  return problem(folder, *facts, ::geteuid());
}

std::optional<std::string> DoorNamespace::create(const std::string& folder) {
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return base::systemError("mkdir " + folder);
  return check(folder);
}

std::optional<std::string> DoorNamespace::servicePath(const std::string& folder, const std::string& serviceName) {
  if (serviceName.empty() || serviceName == "." || serviceName == ".." ||
      serviceName.find_first_of(std::string("/\0", 2)) != std::string::npos)
    return std::nullopt;
  std::string path = folder + "/" + serviceName;
  if (path.size() >= sizeof(sockaddr_un::sun_path)) return std::nullopt;
  return path;
}

}  // namespace quillon::kit
