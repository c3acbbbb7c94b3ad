#include "TestFrames.hpp"

#include <cstring>

#include <libheif/heif.h>
#include <png.h>

namespace quillon::test {

Pixels testPattern(unsigned width, unsigned height, unsigned channels, std::uint8_t seed) {
  Pixels pixels{width, height, channels, {}};
  for (unsigned y = 0; y < height; ++y)
    for (unsigned x = 0; x < width; ++x)
      for (unsigned c = 0; c < channels; ++c)
        pixels.data.push_back(static_cast<std::uint8_t>(c == 3 ? 255 - x : x * 7 + y * 13 + c * 71 + seed));
  return pixels;
}

std::vector<std::uint8_t> encodePNG(const Pixels& pixels) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = pixels.width;
  image.height = pixels.height;
  image.format = pixels.channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  png_alloc_size_t size = 0;
  png_image_write_to_memory(&image, nullptr, &size, 0, pixels.data.data(), 0, nullptr);
  std::vector<std::uint8_t> out(size);
  png_image_write_to_memory(&image, out.data(), &size, 0, pixels.data.data(), 0, nullptr);
  out.resize(size);
  return out;
}

std::optional<Pixels> decodePNG(std::span<const std::uint8_t> png) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, png.data(), png.size())) return std::nullopt;
  const bool alpha = (image.format & PNG_FORMAT_FLAG_ALPHA) != 0;
  image.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  Pixels pixels{image.width, image.height, alpha ? 4u : 3u, std::vector<std::uint8_t>(PNG_IMAGE_SIZE(image))};
  if (!png_image_finish_read(&image, nullptr, pixels.data.data(), 0, nullptr)) return std::nullopt;
  return pixels;
}

namespace {

heif_error collect(heif_context*, const void* data, size_t size, void* out) {
  auto* bytes = static_cast<std::vector<std::uint8_t>*>(out);
  bytes->insert(bytes->end(), static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + size);
  return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

}  // namespace

std::optional<std::vector<std::uint8_t>> encodeHEIC(const Pixels& pixels) {
  heif_context* context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  if (heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder).code != heif_error_Ok) {
    heif_context_free(context);
    return std::nullopt;
  }
  heif_image* image = nullptr;
  heif_image_create(static_cast<int>(pixels.width), static_cast<int>(pixels.height), heif_colorspace_RGB,
                    heif_chroma_interleaved_RGB, &image);
  heif_image_add_plane(image, heif_channel_interleaved, static_cast<int>(pixels.width), static_cast<int>(pixels.height), 8);
  int stride = 0;
  std::uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
  for (unsigned y = 0; y < pixels.height; ++y)
    std::memcpy(plane + static_cast<std::size_t>(stride) * y, pixels.data.data() + std::size_t{pixels.width} * 3 * y,
                std::size_t{pixels.width} * 3);
  heif_encoder_set_lossy_quality(encoder, 90);
  std::optional<std::vector<std::uint8_t>> out;
  if (heif_context_encode_image(context, image, encoder, nullptr, nullptr).code == heif_error_Ok) {
    heif_writer writer{1, collect};
    std::vector<std::uint8_t> bytes;
    if (heif_context_write(context, &writer, &bytes).code == heif_error_Ok) out = std::move(bytes);
  }
  heif_encoder_release(encoder);
  heif_image_release(image);
  heif_context_free(context);
  return out;
}

std::optional<Pixels> decodeHEIC(std::span<const std::uint8_t> heic) {
  heif_context* context = heif_context_alloc();
  heif_image_handle* handle = nullptr;
  heif_image* image = nullptr;
  std::optional<Pixels> out;
  if (heif_context_read_from_memory_without_copy(context, heic.data(), heic.size(), nullptr).code == heif_error_Ok &&
      heif_context_get_primary_image_handle(context, &handle).code == heif_error_Ok &&
      heif_decode_image(handle, &image, heif_colorspace_RGB, heif_chroma_interleaved_RGB, nullptr).code == heif_error_Ok) {
    int stride = 0;
    const std::uint8_t* plane = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
    Pixels pixels{static_cast<unsigned>(heif_image_get_width(image, heif_channel_interleaved)),
                  static_cast<unsigned>(heif_image_get_height(image, heif_channel_interleaved)), 3, {}};
    for (unsigned y = 0; y < pixels.height; ++y)
      pixels.data.insert(pixels.data.end(), plane + static_cast<std::size_t>(stride) * y,
                         plane + static_cast<std::size_t>(stride) * y + std::size_t{pixels.width} * 3);
    out = std::move(pixels);
    heif_image_release(image);
  }
  if (handle != nullptr) heif_image_handle_release(handle);
  heif_context_free(context);
  return out;
}

}  // namespace quillon::test
