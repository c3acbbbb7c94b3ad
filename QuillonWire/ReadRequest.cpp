// The JSON coding of ReadRequest: the generic family coder, instantiated in this unit only.
#include "QuillonWire/ReadRequest.hpp"

#include "QuillonWire/Codec.hpp"

namespace quillon::wire::codec {

bool encode(const ReadRequest& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, ReadRequest& out, Context& context) { return decodeFamily(in, out, context); }

}  // namespace quillon::wire::codec
