// The lineage probe on Linux. Package managers and installers put a new executable in place by
// renaming a new file over the old path (a running executable cannot be rewritten in place), so
// "replaced" is a question of identity: is the file at our path still the one we run?
#include <sys/stat.h>

#include "QuillonKit/ClientLineage.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace quillon::kit {

namespace {

// /proc/self/exe names a replaced executable "<path> (deleted)"; the path we started from is the
// part before it.
std::string startedFrom(std::string path) {
  static constexpr std::string_view kDeleted = " (deleted)";
  struct stat info {};
  if (path.size() > kDeleted.size() && path.ends_with(kDeleted) && ::stat(path.c_str(), &info) != 0)
    path.resize(path.size() - kDeleted.size());
  return path;
}

}  // namespace

std::optional<ClientLineage> ClientLineage::probe(const std::string& executablePath) {
  if (executablePath.empty()) return std::nullopt;
  const std::string path = startedFrom(executablePath);
  struct stat running {}, onDisk {};
  if (::stat("/proc/self/exe", &running) != 0 || ::stat(path.c_str(), &onDisk) != 0) return std::nullopt;
  const bool replaced = running.st_dev != onDisk.st_dev || running.st_ino != onDisk.st_ino;
  if (!replaced) return std::nullopt;
  // The folder of the new executable is the suite's when its VERSION file names a version.
  const std::string version = wire::ClientVersion::resolve(path);
  if (version == wire::ClientVersion::unknown) return judge(true, std::nullopt, std::nullopt);
  return judge(true, std::string(family), version);
}

}  // namespace quillon::kit
