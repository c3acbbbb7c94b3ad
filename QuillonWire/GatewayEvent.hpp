// GatewayEvent: what the daemon pushes to a subscriber, unasked. Today only the recording state
// of the front application.
#pragma once

#include "QuillonWire/AnswerRecords.hpp"
#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

#define QUILLON_EVENT_CASES(CASE) CASE(FrontState, "frontState", (FrontRecording, recording, _0))
QUILLON_FAMILY(GatewayEvent, event, QUILLON_EVENT_CASES);

}  // namespace quillon::wire
