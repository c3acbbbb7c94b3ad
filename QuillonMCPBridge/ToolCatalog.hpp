// The tool catalogue: every tool the bridge serves, one record each, in the order "tools/list"
// shows them. A record is the whole tool: its name, the gateway verb it asks, the description the
// model reads (its wording steers the model, so it is kept word for word), its parameters, how a
// call becomes its one gateway request and how the answer becomes its tool result. tools/list,
// the required-argument check and the dispatcher all read these records, keyed on the name.
//
// The catalogue is static data, built once on first use and never changed; it is the same for
// every agent. Thread-safe after construction.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

#include "QuillonMCPBridge/ToolCall.hpp"

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
  // The internal verb: the name, but "recall" for search and "primed" for memory_get_relevant.
  std::string verb;
  std::string description;
  std::vector<ToolParam> params;
  // Reads the arguments (after the required-argument check) into the one request to send, or
  // refuses them with the tool's own message.
  Prepared (*prepare)(const ToolCall&) = nullptr;
  // Turns the gateway's answer, whatever its case, into the tool result.
  nlohmann::json (*render)(const wire::GatewayResponse&, const ToolCall&) = nullptr;
  // Shown by tools/list. An unlisted tool is served all the same to a caller that names it.
  bool listed = true;

  // The tool's entry for "tools/list": name, description and input schema. The verb, the
  // blankOK flags and how the tool is served stay private to the bridge.
  nlohmann::json toolJSON() const;
};

struct ToolCatalog {
  // Every tool, listed or not, in catalogue order.
  static const std::vector<ToolSpec>& all();
  // The tool with this exact name, listed or not, or null.
  static const ToolSpec* find(std::string_view name);
  // Tools whose calls carry a title trace; none in this version.
  static const std::vector<std::string>& titleTraceTools();
  // The "tools" array of the "tools/list" reply (the listed tools), and its compact
  // serialisation, built once.
  static const nlohmann::json& toolsJSON();
  static const std::string& toolsJSONText();
};

}  // namespace quillon::bridge
