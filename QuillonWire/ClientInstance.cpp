#include "QuillonWire/ClientInstance.hpp"

#include <pwd.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "QuillonBase/Process.hpp"

namespace quillon::wire {

const std::string& ClientInstance::gatewayID() {
  static const std::string id = std::string(bundlePrefix) + std::string(segment) + ".gateway";
  return id;
}

const std::string& ClientInstance::menubarID() {
  static const std::string id = std::string(bundlePrefix) + std::string(segment) + ".menubar";
  return id;
}

std::string homeFolder() {
  if (auto home = base::environmentVariable("HOME"); home && home->starts_with('/')) return std::move(*home);
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(static_cast<std::size_t>(size > 0 ? size : 16384));
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && found->pw_dir[0] == '/')
    return found->pw_dir;
  return "/";
}

}  // namespace quillon::wire
