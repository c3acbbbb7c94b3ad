#include "QuillonMCPBridge/FallbackAnswers.hpp"

#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"

namespace quillon::bridge {

using nlohmann::json;

json fallback(const wire::GatewayResponse& response) {
  if (const auto* failure = std::get_if<wire::answer::Failure>(&response.value)) return errorContent(failure->message);
  if (const auto* unknown = std::get_if<wire::answer::Unimplemented>(&response.value))
    return errorContent(unknown->verb + " isn't available yet.");
  return textContent("\xE2\x80\x94");  // —
}

json rendered(const wire::GatewayResponse& response, Defang defang) {
  const auto* text = std::get_if<wire::answer::Text>(&response.value);
  if (text == nullptr) return fallback(response);
  return textContent(defang == Defang::yes ? defangEnvelope(text->text) : text->text);
}

}  // namespace quillon::bridge
