// The tool catalogue: the fixed list of tools the bridge offers, in the order "tools/list" shows
// them. Each tool has its name, the verb the dispatcher keys on, the description the model reads
// (its wording steers the model, so it is kept word for word) and its parameters.
//
// The catalogue is static data, built once on first use and never changed; it is the same for
// every agent. Thread-safe after construction.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace quillon::bridge {

struct ToolParam {
  std::string name;
  bool required = false;
  // For a required string: the empty string is an acceptable value.
  bool blankOK = false;
  // The argument's JSON Schema fragment: {"type", "description"}, "items" for arrays.
  nlohmann::json schema;

};

struct ToolSpec {
  std::string name;
  std::string verb;
  std::string description;
  std::vector<ToolParam> params;

  // The tool's entry for "tools/list": name, description and input schema. The verb and the
  // blankOK flags stay private to the bridge.
  nlohmann::json toolJSON() const;
};

struct ToolCatalog {
  // Every tool, in catalogue order.
  static const std::vector<ToolSpec>& all();
  // The tool with this exact name, or null.
  static const ToolSpec* find(std::string_view name);
  // Tools whose calls carry a title trace; none in this version.
  static const std::vector<std::string>& titleTraceTools();
  // The "tools" array of the "tools/list" reply, and its compact serialisation, built once.
  static const nlohmann::json& toolsJSON();
  static const std::string& toolsJSONText();
};

}  // namespace quillon::bridge
