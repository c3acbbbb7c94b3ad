#include "QuillonMCPBridge/MemoryFilters.hpp"


namespace quillon::bridge {

using nlohmann::json;

std::variant<wire::Filters, Refusal> parseFilters(const json& value) {
  if (!value.is_object())
    return Refusal{"filters must be an object of key\xE2\x86\x92scalar, e.g. {\"status\":\"queued\",\"priority\":\"high\"}"};
  wire::Filters filters;
  for (const auto& [key, entry] : value.items()) {
    // Booleans first: nlohmann keeps them apart from numbers, and so must we.
    if (entry.is_string())
      filters.emplace(key, wire::FilterValue::string(entry.get<std::string>()));
    else if (entry.is_boolean())
      filters.emplace(key, wire::FilterValue::boolean(entry.get<bool>()));
    else if (entry.is_number())
      filters.emplace(key, wire::FilterValue::number(entry.get<double>()));
    else
      return Refusal{"filter '" + key +
                     "' must be a scalar \xE2\x80\x94 string, number, or bool (no nested objects or arrays)"};
  }
  return filters;
}

std::optional<Refusal> readFilters(const ToolCall& call, std::string_view key, std::optional<wire::Filters>& out) {
  const json* value = call.given(key);
  if (value == nullptr) return std::nullopt;
  auto parsed = parseFilters(*value);
  if (auto* refusal = std::get_if<Refusal>(&parsed)) return std::move(*refusal);
  out = std::move(std::get<wire::Filters>(parsed));
  return std::nullopt;
}

}  // namespace quillon::bridge
