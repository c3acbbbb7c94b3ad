#include "QuillonGateway/GatewayDaemon.hpp"

#include <pwd.h>
#include <unistd.h>

#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonKit/MCPGatewayName.hpp"

namespace quillon::gateway {

namespace {

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path == "/" ? "" : path;
}

std::string homeFolder(const kit::Environment& environment) {
  if (auto home = environment("HOME"); home && !home->empty()) return *home;
  if (const passwd* entry = ::getpwuid(::geteuid()); entry != nullptr && entry->pw_dir != nullptr) return entry->pw_dir;
  return "/";
}

}  // namespace

DaemonSettings DaemonSettings::fromEnvironment(const kit::Environment& environment) {
  DaemonSettings settings;
  settings.serviceName = kit::MCPGatewayName::resolve(environment);
  settings.namespaceFolder = kit::DoorNamespace::folder(environment, ::geteuid());
  // The XDG base-directory rule: a relative XDG_DATA_HOME is invalid and is ignored.
  if (auto data = environment("XDG_DATA_HOME"); data && !data->empty() && data->front() == '/')
    settings.dataFolder = withoutTrailingSlashes(*data) + "/quillon";
  else
    settings.dataFolder = withoutTrailingSlashes(homeFolder(environment)) + "/.local/share/quillon";
  return settings;
}

}  // namespace quillon::gateway
