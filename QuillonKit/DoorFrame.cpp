#include "QuillonKit/DoorFrame.hpp"

#include <nlohmann/json.hpp>

#include <cstring>

#include "QuillonWire/JSONNesting.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace quillon::kit {

namespace {

using nlohmann::json;

// The envelope adds one level to the deepest message the wire accepts.
constexpr std::size_t kMaxNesting = wire::kMaxNesting + 1;

bool isOneJSONValueOnOneLine(const std::string& text) {
  if (std::memchr(text.data(), '\n', text.size()) != nullptr) return false;
  if (wire::holdsNulByte(text) || wire::nestsDeeperThan(text, kMaxNesting)) return false;
  return json::accept(text);
}

std::optional<std::uint64_t> unsignedMember(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_unsigned()) return std::nullopt;
  return found->get<std::uint64_t>();
}

std::optional<std::string> embeddedMember(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) return std::nullopt;
  return found->dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::optional<std::string> DoorFrame::encode(const DoorLine& line) {
  const DoorMessage& message = line.message;
  std::string out = "{";
  const auto member = [&out](std::string_view key) {
    if (out.size() > 1) out += ',';
    out += '"';
    out += key;
    out += "\":";
  };
  const auto number = [&](std::string_view key, const std::optional<std::uint64_t>& value) {
    if (!value) return;
    member(key);
    out += std::to_string(*value);
  };
  number("id", line.id);
  number("wire", message.wire);
  number("served_ms", message.servedMs);
  if (message.token) {
    member("token");
    out += json(*message.token).dump(-1, ' ', false, json::error_handler_t::replace);
  }
  if (message.subscribe) {
    member("subscribe");
    out += *message.subscribe ? "true" : "false";
  }
  if (message.event) {
    if (!isOneJSONValueOnOneLine(*message.event)) return std::nullopt;
    member("event");
    out += *message.event;
  }
  if (message.payload) {
    if (!isOneJSONValueOnOneLine(*message.payload)) return std::nullopt;
    member("payload");
    out += *message.payload;
  }
  out += "}\n";
  return out;
}

std::optional<DoorLine> DoorFrame::decode(std::string_view text) {
  if (text.size() > kMaxLineBytes || wire::holdsNulByte(text) || wire::nestsDeeperThan(text, kMaxNesting))
    return std::nullopt;
  const json value = json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded() || !value.is_object()) return std::nullopt;
  DoorLine line;
  line.id = unsignedMember(value, "id");
  line.message.wire = unsignedMember(value, "wire");
  line.message.servedMs = unsignedMember(value, "served_ms");
  if (const auto found = value.find("subscribe"); found != value.end() && found->is_boolean())
    line.message.subscribe = found->get<bool>();
  if (const auto found = value.find("token"); found != value.end() && found->is_string())
    line.message.token = found->get<std::string>();
  line.message.payload = embeddedMember(value, "payload");
  line.message.event = embeddedMember(value, "event");
  return line;
}

}  // namespace quillon::kit
