#include "QuillonMCPBridge/ToolCall.hpp"

#include <limits>


namespace quillon::bridge {

using nlohmann::json;

const json* ToolCall::given(std::string_view key) const {
  if (!arguments.is_object()) return nullptr;
  const auto found = arguments.find(key);
  if (found == arguments.end() || found->is_null()) return nullptr;
  return &*found;
}

std::optional<std::string> ToolCall::s(std::string_view key) const {
  const json* value = given(key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::string> ToolCall::opt(std::string_view key) const {
  auto value = s(key);
  if (value && value->empty()) return std::nullopt;
  return value;
}

bool ToolCall::flag(std::string_view key) const {
  const json* value = given(key);
  return value != nullptr && value->is_boolean() && value->get<bool>();
}

std::optional<std::int64_t> ToolCall::integer(std::string_view key) const {
  const json* value = given(key);
  if (value == nullptr) return std::nullopt;
  if (value->is_number_integer() && !value->is_number_unsigned()) return value->get<std::int64_t>();
  if (value->is_number_unsigned()) {
    const auto wide = value->get<std::uint64_t>();
    if (wide <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      return static_cast<std::int64_t>(wide);
  }
  return std::nullopt;
}

std::string ToolCall::required(std::string_view key) const { return s(key).value_or(std::string()); }

std::optional<std::string> ToolCall::sessionArg() const {
  if (auto named = opt("session_id")) return named;
  if (session) return session;
  return bridgeSession;
}

std::string ToolCall::writer() const {
  if (!writerName) return std::string();
  return writerName().value_or(std::string());
}

}  // namespace quillon::bridge
