#include <string>

#include "QuillonWire/ClientInstance.hpp"

namespace quillon::wire {

// The suite keeps its data in one folder under Application Support, named like the product
// plus the instance's data suffix (empty in this build): ".../Application Support/Quillon".
std::string ClientInstance::runbooksRootExpanded() {
  std::string home = homeFolder();
  if (home == "/") home.clear();
  return home + "/Library/Application Support/" + std::string(productName) + std::string(dataSuffix) + "/runbooks";
}

}  // namespace quillon::wire
