#include "QuillonMCP/ScreenClosures.hpp"
#include "QuillonMCPLinux/PNGFile.hpp"

namespace quillon::mcp {

std::variant<std::vector<std::uint8_t>, bridge::ScreenFailure> convertFrame(std::span<const std::uint8_t> frame) {
  // Never destroyed: the codec library it loaded stays for the life of the process.
  static PNGFile& png = *new PNGFile(PNGFile::besideExecutable());
  auto converted = png.fromFrame(frame);
  if (auto* failure = std::get_if<PNGFile::Failure>(&converted)) return bridge::ScreenFailure{failure->message};
  return std::get<std::vector<std::uint8_t>>(std::move(converted));
}

}  // namespace quillon::mcp
