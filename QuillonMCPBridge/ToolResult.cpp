#include "QuillonMCPBridge/ToolResult.hpp"

namespace quillon::bridge {

using nlohmann::json;

json textContent(std::string text) {
  json item = json::object();
  item["type"] = "text";
  item["text"] = std::move(text);
  json result = json::object();
  result["content"] = json::array({std::move(item)});
  return result;
}

json errorContent(std::string message) {
  json result = textContent(std::move(message));
  result["isError"] = true;
  return result;
}

json withMeta(json result, const MetaEntries& meta) {
  if (meta.empty()) return result;
  json merged = json::object();
  if (const auto existing = result.find("_meta"); existing != result.end() && existing->is_object())
    merged = std::move(*existing);
  for (const auto& [key, value] : meta) {
    if (value)
      merged[key] = *value;
    else
      merged.erase(key);
  }
  result["_meta"] = std::move(merged);
  return result;
}

}  // namespace quillon::bridge
