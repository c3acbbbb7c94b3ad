// DiagnosticRequest: a line for the daemon's diagnostic log, sent inside GatewayRequest's
// `diagnostic` case. `source` names the sending program ("mcp" for the bridge).
#pragma once

#include "QuillonWire/WireCatalogue.hpp"

namespace quillon::wire {

#define QUILLON_DIAGNOSTIC_CASES(CASE) CASE(Log, "log", (String, source), (String, line))
QUILLON_FAMILY(DiagnosticRequest, diagnostic, QUILLON_DIAGNOSTIC_CASES);

}  // namespace quillon::wire
