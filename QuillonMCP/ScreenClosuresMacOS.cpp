#include "QuillonMCP/ScreenClosures.hpp"
#include "QuillonMCPMacOS/PNGFile.hpp"

namespace quillon::mcp {

std::variant<std::vector<std::uint8_t>, bridge::ScreenFailure> convertFrame(std::span<const std::uint8_t> frame) {
  auto converted = PNGFile::fromFrame(frame);
  if (auto* failure = std::get_if<PNGFile::Failure>(&converted)) return bridge::ScreenFailure{failure->message};
  return std::get<std::vector<std::uint8_t>>(std::move(converted));
}

}  // namespace quillon::mcp
