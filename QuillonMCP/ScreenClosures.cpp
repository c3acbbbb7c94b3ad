#include "QuillonMCP/ScreenClosures.hpp"

#include <utility>

#include "QuillonBase/Process.hpp"
#include "QuillonKit/DesktopOpener.hpp"

namespace quillon::mcp {

namespace {

kit::DesktopOpener opener() {
  auto standIn = base::environmentVariable("QUILLON_MCP_OPENER_FOR_TESTS");
  if (standIn && !standIn->empty()) return kit::DesktopOpener(std::move(*standIn));
  return kit::DesktopOpener();
}

}  // namespace

// Defined per platform: the frame converted to PNG bytes, or the failure's text.
std::variant<std::vector<std::uint8_t>, bridge::ScreenFailure> convertFrame(std::span<const std::uint8_t> frame);

bridge::ScreenSeams screenClosures(const std::optional<kit::ExportedScreens>& folder) {
  bridge::ScreenSeams seams;
  seams.frameToPNG = [&folder](std::span<const std::uint8_t> frame, std::int64_t moment,
                               const std::string& window) -> bridge::FrameWritten {
    if (!folder) return bridge::ScreenFailure{"this Mac names no temp folder for the user"};
    auto png = convertFrame(frame);
    if (auto* failure = std::get_if<bridge::ScreenFailure>(&png)) return std::move(*failure);
    auto written = folder->write(std::get<std::vector<std::uint8_t>>(png), moment, window);
    if (auto* failure = std::get_if<kit::ExportedScreens::Failure>(&written)) return bridge::ScreenFailure{failure->message};
    return std::get<std::string>(std::move(written));
  };
  seams.openFiles = [desktop = opener()](const std::vector<std::string>& paths) { return desktop.open(paths); };
  return seams;
}

}  // namespace quillon::mcp
