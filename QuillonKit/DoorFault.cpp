#include "QuillonKit/DoorFault.hpp"

#include "QuillonKit/DoorRedial.hpp"
#include "QuillonWire/ClientInstance.hpp"
#include "QuillonWire/WireContract.hpp"

namespace quillon::kit {

namespace {

std::string product() { return std::string(wire::ClientInstance::productName); }

}  // namespace

std::string_view DoorFault::rawValue() const {
  switch (value_) {
    case absent: return "absent";
    case refused: return "refused";
    case silent: return "silent";
    case skew: return "skew";
  }
  return "absent";
}

std::string DoorFault::message() const {
  switch (value_) {
    case absent: return product() + " isn't running — start it to access your memory.";
    case refused:
      return product() +
             " is running but refused this connection — this binary isn't signed with the daemon's expected "
             "identity (sign it: Scripts/sign.sh).";
    case silent:
      // The standard budget, whatever a test client waits: the sentence promises what users get.
      return product() + " is running but did not answer in " + std::to_string(DoorRedial::standard.budgetSeconds()) +
             "s — it may be busy starting up; try again in a moment.";
    case skew: return std::string(wire::WireContract::mismatchMessage);
  }
  return {};
}

std::string DoorFault::staleRefusalMessage(const std::optional<std::string>& version) {
  std::string text = product() + " updated";
  if (version) text += " to " + *version;
  return text + " — this session's connector is from before the update. " +
         "Restart this session (or reconnect the MCP server) to continue. Nothing is wrong.";
}

std::string DoorFault::menuLine(wire::ClientProfile profile) const {
  switch (value_) {
    case refused:
      if (profile.isProduction()) return product() + " is running but this menu needs a restart to reconnect.";
      return message();
    case skew: return product() + " is finishing an update — this window will reconnect by itself.";
    case absent:
    case silent: return message();
  }
  return message();
}

}  // namespace quillon::kit
