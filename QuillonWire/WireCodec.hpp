// Encoding and decoding of the gateway's messages as JSON text, both ways.
//
// The bridge encodes requests and decodes answers and events; a gateway decodes requests and
// encodes answers with these same functions. The JSON shape, shared with the daemon:
//   - a case is an object with exactly one key, its name, holding an object of its payload:
//     labelled positions by label, unlabelled ones as "_0", "_1"; a case without payload holds {};
//   - a record is an object keyed by its field names;
//   - an absent optional is left out; a missing or null one reads as absent;
//   - byte strings are standard base64 with padding; payload-less enumerations are bare strings;
//   - integers must be JSON integers, booleans JSON booleans (true is never 1), doubles any number;
//   - keys are case-sensitive; unknown keys inside a payload or record are ignored, so a newer
//     daemon may add fields;
//   - nesting deeper than kMaxNesting levels is refused before parsing.
//
// Encoding fails only on a non-finite double (JSON has no NaN or infinity); a client answers that
// with "encode failed" and sends nothing. Strings that are not valid UTF-8 are encoded with U+FFFD
// in place of the bad bytes. No function here throws.
#pragma once

#include <string_view>

#include "QuillonWire/WireResult.hpp"

namespace quillon::wire {

struct GatewayRequest;
struct GatewayResponse;
struct GatewayEvent;

inline constexpr int kMaxNesting = 512;

Encoded encode(const GatewayRequest& request);
Encoded encode(const GatewayResponse& response);
Encoded encode(const GatewayEvent& event);

Decoded<GatewayRequest> decodeRequest(std::string_view json);
Decoded<GatewayResponse> decodeResponse(std::string_view json);
Decoded<GatewayEvent> decodeEvent(std::string_view json);

}  // namespace quillon::wire
