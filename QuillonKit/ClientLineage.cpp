#include "QuillonKit/ClientLineage.hpp"

namespace quillon::kit {

bool ClientLineage::belongsToSuite(std::string_view bundleID) {
  if (bundleID == family) return true;
  return bundleID.size() > family.size() && bundleID.substr(0, family.size()) == family && bundleID[family.size()] == '.';
}

std::optional<ClientLineage> ClientLineage::judge(bool executableReplaced,
                                                  const std::optional<std::string>& occupantBundleID,
                                                  const std::optional<std::string>& occupantVersion) {
  if (!executableReplaced || !occupantBundleID) return std::nullopt;
  if (!belongsToSuite(*occupantBundleID)) return std::nullopt;
  return ClientLineage{Stale{occupantVersion}};
}

}  // namespace quillon::kit
