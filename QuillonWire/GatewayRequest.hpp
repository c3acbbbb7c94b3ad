// GatewayRequest: the one request of every exchange with the gateway daemon.
//
// Four cases, each carrying one family of verbs as its unlabelled payload, so
// GatewayRequest{request::Read{ReadRequest{read::Recall{.query = "x"}}}} is written
// {"read":{"_0":{"recall":{"query":"x"}}}}. Encoding and decoding live in WireCodec.hpp.
#pragma once

#include "QuillonWire/ControlRequest.hpp"
#include "QuillonWire/DiagnosticRequest.hpp"
#include "QuillonWire/NotesRequest.hpp"
#include "QuillonWire/ReadRequest.hpp"
#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

// clang-format off
#define QUILLON_REQUEST_CASES(CASE)                                     \
  CASE(Read, "read", (ReadRequest, request, _0))                        \
  CASE(Control, "control", (ControlRequest, request, _0))               \
  CASE(Notes, "notes", (NotesRequest, request, _0))                     \
  CASE(Diagnostic, "diagnostic", (DiagnosticRequest, request, _0))
// clang-format on
QUILLON_FAMILY(GatewayRequest, request, QUILLON_REQUEST_CASES);

// Whether serving the request may change what the gateway keeps: every control verb and every
// notes verb but the two listings. The door sends these with a token, so that the retry after a
// broken connection is served once (docs/door.md); reads and diagnostic lines need none.
bool changesStore(const GatewayRequest& request);

}  // namespace quillon::wire
