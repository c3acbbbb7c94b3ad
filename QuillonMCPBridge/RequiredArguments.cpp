#include "QuillonMCPBridge/RequiredArguments.hpp"

#include <nlohmann/json.hpp>

#include "QuillonMCPBridge/ToolCatalog.hpp"
#include "QuillonMCPBridge/UnicodeText.hpp"

namespace quillon::bridge {

namespace {

// How much of a parameter's description a fault quotes, in characters.
constexpr std::size_t kQuotedDescription = 120;

}  // namespace

std::optional<std::string> requiredArgumentFault(std::string_view tool, const nlohmann::json& arguments) {
  const ToolSpec* entry = ToolCatalog::find(tool);
  if (entry == nullptr) return std::nullopt;
  for (const auto& param : entry->params) {
    // Only required strings are checked here; numbers, flags, lists and objects are the tools' own.
    if (!param.required || param.schema.value("type", "") != "string") continue;

    std::string suffix;
    if (const auto description = param.schema.find("description");
        description != param.schema.end() && description->is_string())
      suffix = " \xE2\x80\x94 " + unicode::prefixCharacters(description->get_ref<const std::string&>(), kQuotedDescription);

    const auto value = arguments.is_object() ? arguments.find(param.name) : arguments.end();
    if (!arguments.is_object() || value == arguments.end() || !value->is_string())
      return std::string(tool) + " needs a string '" + param.name + "'" + suffix + ".";
    if (!param.blankOK && unicode::isBlank(value->get_ref<const std::string&>()))
      return std::string(tool) + "'s '" + param.name + "' is empty" + suffix + ".";
  }
  return std::nullopt;
}

}  // namespace quillon::bridge
