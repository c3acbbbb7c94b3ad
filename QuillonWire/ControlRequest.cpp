// The JSON coding of ControlRequest: the generic family coder, instantiated in this unit only.
#include "QuillonWire/ControlRequest.hpp"

#include "QuillonWire/Codec.hpp"

namespace quillon::wire::codec {

bool encode(const ControlRequest& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, ControlRequest& out, Context& context) { return decodeFamily(in, out, context); }

}  // namespace quillon::wire::codec
