// ClientLineage: what became of this executable since the process started.
//
// It matters only when the gateway refuses us: a bridge whose file an update replaced while it
// ran is an old binary the new gateway no longer admits, and the user should restart the session
// rather than go looking for a signing problem.
//
// `judge` holds the rule; `probe` gathers its inputs on this platform:
//   - macOS: the file at the executable's path was created after the process started, and the
//     application bundle around it gives the identifier and the short version;
//   - Linux: the file at the executable's path is no longer the one this process runs (another
//     device and inode than /proc/self/exe), and the folder holding it stands for the bundle: it
//     is the suite's when a VERSION file there names a version, which is the installed version.
// `foreign` is never reported by these probes; the bridge needs only the stale verdict.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "QuillonWire/ClientInstance.hpp"

namespace quillon::kit {

struct ClientLineage {
  // Replaced by an update of the suite; the version now installed, when it can be read.
  struct Stale {
    std::optional<std::string> installedVersion;
    bool operator==(const Stale&) const = default;
  };
  // Belongs to some other build.
  struct Foreign {
    bool operator==(const Foreign&) const = default;
  };

  std::variant<Stale, Foreign> value;
  bool operator==(const ClientLineage&) const = default;

  static constexpr std::string_view family = wire::ClientInstance::bundlePrefix;

  // The family itself, or the family followed by "." and more.
  static bool belongsToSuite(std::string_view bundleID);

  // Stale when the executable was replaced and the bundle now beside it is the suite's; nothing
  // (unremarkable) otherwise.
  static std::optional<ClientLineage> judge(bool executableReplaced, const std::optional<std::string>& occupantBundleID,
                                            const std::optional<std::string>& occupantVersion);

  // The verdict for the executable this process was started from; nothing without a path.
  static std::optional<ClientLineage> probe(const std::string& executablePath);
};

}  // namespace quillon::kit
