// The JSON coding of GatewayResponse: the generic family coder, instantiated in this unit only.
#include "QuillonWire/GatewayResponse.hpp"

#include "QuillonWire/Codec.hpp"

namespace quillon::wire::codec {

bool encode(const GatewayResponse& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, GatewayResponse& out, Context& context) { return decodeFamily(in, out, context); }

}  // namespace quillon::wire::codec
