// Real image bytes made by the tests themselves: PNG with libpng, HEIC with libheif (when it has
// an HEVC encoder), and decoders to compare what the bridge wrote with what it was given.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace quillon::test {

struct Pixels {
  unsigned width = 0, height = 0, channels = 3;  // 8-bit RGB or RGBA, rows packed
  std::vector<std::uint8_t> data;
  bool operator==(const Pixels&) const = default;
};

// A picture whose every pixel differs from its neighbours, so a shifted or swapped channel shows.
Pixels testPattern(unsigned width, unsigned height, unsigned channels = 3, std::uint8_t seed = 0);

std::vector<std::uint8_t> encodePNG(const Pixels& pixels);
// Nothing when this libheif has no HEVC encoder.
std::optional<std::vector<std::uint8_t>> encodeHEIC(const Pixels& pixels);

std::optional<Pixels> decodePNG(std::span<const std::uint8_t> png);
// libheif's own reading of an HEIC (lossy, so the reference for what a converted PNG must hold).
std::optional<Pixels> decodeHEIC(std::span<const std::uint8_t> heic);

}  // namespace quillon::test
