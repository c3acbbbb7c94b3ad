// The screen tools' two closures as the entry hands them to the bridge: frames converted with
// the platform's codecs and written into the exported-screens folder, and files shown with the
// platform's opener. `folder` is absent when the system names no temporary folder for the user;
// every frame then fails with "this Mac names no temp folder for the user".
//
// QUILLON_MCP_OPENER_FOR_TESTS, when set, names a program to run in place of the opener, so tests
// can watch what would have been opened.
#pragma once

#include <optional>

#include "QuillonKit/ExportedScreens.hpp"
#include "QuillonMCPBridge/ScreenSeams.hpp"

namespace quillon::mcp {

// Borrows `folder`, which must outlive the closures.
bridge::ScreenSeams screenClosures(const std::optional<kit::ExportedScreens>& folder);

}  // namespace quillon::mcp
