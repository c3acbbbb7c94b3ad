#include "QuillonWire/ClientInstance.hpp"

namespace quillon::wire {

const std::string& ClientInstance::gatewayID() {
  static const std::string id = std::string(bundlePrefix) + std::string(segment) + ".gateway";
  return id;
}

const std::string& ClientInstance::menubarID() {
  static const std::string id = std::string(bundlePrefix) + std::string(segment) + ".menubar";
  return id;
}

}  // namespace quillon::wire
