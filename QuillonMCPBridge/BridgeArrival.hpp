// BridgeArrival: one-line descriptions of how the bridge was started and what it was asked, for
// the diagnostic arrival log. Paths and the values of unknown CLAUDE* variables are redacted to
// their byte length ("<string:41B>"), so a log line never carries a user's path or secret.
// Total functions: a value of the wrong type counts as absent.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::bridge {

struct BridgeArrival {
  // The variables whose values may be shown in full, in this order.
  static const std::vector<std::string>& identityVariables();

  static std::string redacted(std::string_view value);
  static std::string argv(const std::vector<std::string>& arguments);
  static std::string claudeEnvironment(const std::map<std::string, std::string>& environment);
  static std::string json(const nlohmann::json& value);

  static std::string start(const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment, long parentPID,
                           std::string_view parentName);
  // The line for one incoming message, or nothing for methods that are not logged.
  static std::optional<std::string> request(const nlohmann::json& message);
};

}  // namespace quillon::bridge
