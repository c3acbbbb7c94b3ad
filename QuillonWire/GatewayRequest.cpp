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
