// The screen tools: screen_get writes one window's stored frame as a PNG file and names its path
// for the model to read; screen_open writes frames and opens them on the desktop. The files are
// made and opened through the bridge's ScreenSeams.
//
// screenGet:  text → the text; image → "PNG: <path>\nRead that path to see the window full
//             size." (a failure is an error result with its text); images → one such piece per
//             frame, or "the frame for moment <n> could not be written: <why>", joined by a
//             blank line ("—" when there is none).
// screenOpen: images → the heading ("Opened <n> on the Mac with `open`:", "Wrote <n>, but `open`
//             failed: <why>" or "Nothing was opened.") then one "- moment <n> <window>: …" line
//             per image; all written files are handed to one openFiles call.
// Both: failure and unimplemented as every tool, any other answer "—".
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

#include "QuillonMCPBridge/ScreenSeams.hpp"
#include "QuillonMCPBridge/ToolCall.hpp"
#include "QuillonWire/GatewayResponse.hpp"

namespace quillon::bridge {

Prepared prepareScreenGet(const ToolCall& call);
Prepared prepareScreenOpen(const ToolCall& call);

nlohmann::json screenGet(const wire::GatewayResponse& response, std::int64_t moment, const std::string& window,
                         const ScreenSeams& seams);
nlohmann::json screenOpen(const wire::GatewayResponse& response, const ScreenSeams& seams);

// The routes' renderers: the seams and the moment come from the call.
nlohmann::json screenGetOf(const wire::GatewayResponse& response, const ToolCall& call);
nlohmann::json screenOpenOf(const wire::GatewayResponse& response, const ToolCall& call);

}  // namespace quillon::bridge
