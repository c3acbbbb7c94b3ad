// The JSON coding of GatewayEvent: the generic family coder, instantiated in this unit only.
#include "QuillonWire/GatewayEvent.hpp"

#include "QuillonWire/Codec.hpp"

namespace quillon::wire::codec {

bool encode(const GatewayEvent& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, GatewayEvent& out, Context& context) { return decodeFamily(in, out, context); }

}  // namespace quillon::wire::codec
