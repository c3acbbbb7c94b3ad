// The JSON coding of GatewayRequest and of the one-case DiagnosticRequest; the other families
// inside it have their own units.
#include "QuillonWire/GatewayRequest.hpp"

#include "QuillonWire/Codec.hpp"

namespace quillon::wire::codec {

bool encode(const GatewayRequest& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, GatewayRequest& out, Context& context) { return decodeFamily(in, out, context); }

bool encode(const DiagnosticRequest& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, DiagnosticRequest& out, Context& context) { return decodeFamily(in, out, context); }

}  // namespace quillon::wire::codec

namespace quillon::wire {

bool changesStore(const GatewayRequest& request) {
  if (std::holds_alternative<request::Control>(request.value)) return true;
  const auto* notes = std::get_if<request::Notes>(&request.value);
  if (notes == nullptr) return false;
  const auto& verb = notes->request.value;
  return !std::holds_alternative<notes::ListPaths>(verb) && !std::holds_alternative<notes::ScopeBoard>(verb);
}

}  // namespace quillon::wire
