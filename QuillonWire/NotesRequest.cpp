// The JSON coding of NotesRequest: the generic family coder, instantiated in this unit only.
#include "QuillonWire/NotesRequest.hpp"

#include "QuillonWire/Codec.hpp"

namespace quillon::wire::codec {

bool encode(const NotesRequest& value, json& out, Context& context) { return encodeFamily(value, out, context); }
bool decode(const json& in, NotesRequest& out, Context& context) { return decodeFamily(in, out, context); }

}  // namespace quillon::wire::codec
