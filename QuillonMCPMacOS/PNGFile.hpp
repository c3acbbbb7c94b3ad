// PNGFile: turns a stored screen frame (HEIC as the daemon keeps them, PNG or JPEG) into PNG bytes
// with ImageIO, which is part of the system and costs nothing to have linked at start.
// Thread-safe; never throws.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace quillon::mcp {

struct PNGFile {
  struct Failure {
    std::string message;
  };
  using Converted = std::variant<std::vector<std::uint8_t>, Failure>;

  static constexpr const char* kNotDecodable = "the stored frame is not a decodable image";
  static constexpr const char* kNotEncodable = "the stored frame could not be encoded as a PNG";

  static Converted fromFrame(std::span<const std::uint8_t> frame);
};

}  // namespace quillon::mcp
