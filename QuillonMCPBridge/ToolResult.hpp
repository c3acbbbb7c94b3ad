// The shape every tool answers with: one text item in "content", and "isError": true on failures.
// These two functions are the only places that build it.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quillon::bridge {

nlohmann::json textContent(std::string text);
nlohmann::json errorContent(std::string message);

// Metadata for hook clients, merged into the result's "_meta": an entry with a value sets its key,
// an entry without one removes it. No entries: the result comes back unchanged.
using MetaEntries = std::vector<std::pair<std::string, std::optional<nlohmann::json>>>;
nlohmann::json withMeta(nlohmann::json result, const MetaEntries& meta);

}  // namespace quillon::bridge
