// The codec library: decodes a stored frame with libheif, libpng or libjpeg and encodes it as a
// PNG with libpng. Built as a shared object of its own so that the bridge loads these libraries
// (libheif brings several video decoders) only when a frame is first written.
//
// None of the codecs may write to standard error: libjpeg's messages are silenced, and libpng's
// simplified API and libheif report through return values.
#include "QuillonMCPLinux/FrameCodec.hpp"

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jpeglib.h>
#include <libheif/heif.h>
#include <png.h>

namespace {

// Decoded pixels, 8 bits a channel, rows packed.
struct Raster {
  unsigned width = 0, height = 0, channels = 0;  // 3 (RGB) or 4 (RGBA)
  std::vector<unsigned char> pixels;
};

bool isPNG(const unsigned char* data, std::size_t size) { return size >= 8 && png_sig_cmp(data, 0, 8) == 0; }
bool isJPEG(const unsigned char* data, std::size_t size) { return size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF; }

bool decodePNG(const unsigned char* data, std::size_t size, Raster& out) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, data, size)) return false;
  const bool alpha = (image.format & PNG_FORMAT_FLAG_ALPHA) != 0;
  image.format = alpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  out = Raster{image.width, image.height, alpha ? 4u : 3u, {}};
  out.pixels.resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, out.pixels.data(), 0, nullptr)) {
    png_image_free(&image);
    return false;
  }
  return true;
}

struct JPEGError {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

void jpegFail(j_common_ptr info) { std::longjmp(reinterpret_cast<JPEGError*>(info->err)->jump, 1); }
void jpegSilent(j_common_ptr) {}

// Only plain values live across setjmp here: libjpeg reports a bad file by jumping back.
bool decodeJPEG(const unsigned char* data, std::size_t size, Raster& out) {
  jpeg_decompress_struct info;
  JPEGError error;
  info.err = jpeg_std_error(&error.manager);
  error.manager.error_exit = jpegFail;
  error.manager.output_message = jpegSilent;
  unsigned char* volatile pixels = nullptr;
  if (setjmp(error.jump) != 0) {
    jpeg_destroy_decompress(&info);
    std::free(pixels);
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, data, static_cast<unsigned long>(size));
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  const std::size_t rowBytes = std::size_t{info.output_width} * 3;
  pixels = static_cast<unsigned char*>(std::malloc(rowBytes * info.output_height));
  if (pixels == nullptr) jpegFail(reinterpret_cast<j_common_ptr>(&info));
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = pixels + rowBytes * info.output_scanline;
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  out.width = info.output_width;
  out.height = info.output_height;
  out.channels = 3;
  jpeg_destroy_decompress(&info);
  out.pixels.assign(pixels, pixels + rowBytes * out.height);
  std::free(pixels);
  return true;
}

bool decodeHEIF(const unsigned char* data, std::size_t size, Raster& out) {
  heif_context* context = heif_context_alloc();
  heif_image_handle* handle = nullptr;
  heif_image* image = nullptr;
  bool decoded = false;
  if (heif_context_read_from_memory_without_copy(context, data, size, nullptr).code == heif_error_Ok &&
      heif_context_get_primary_image_handle(context, &handle).code == heif_error_Ok) {
    const bool alpha = heif_image_handle_has_alpha_channel(handle) != 0;
    if (heif_decode_image(handle, &image, heif_colorspace_RGB,
                          alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, nullptr)
            .code == heif_error_Ok) {
      int stride = 0;
      const std::uint8_t* plane = heif_image_get_plane_readonly(image, heif_channel_interleaved, &stride);
      const int width = heif_image_get_width(image, heif_channel_interleaved);
      const int height = heif_image_get_height(image, heif_channel_interleaved);
      if (plane != nullptr && width > 0 && height > 0) {
        out = Raster{static_cast<unsigned>(width), static_cast<unsigned>(height), alpha ? 4u : 3u, {}};
        const std::size_t rowBytes = std::size_t{out.width} * out.channels;
        out.pixels.resize(rowBytes * out.height);
        for (unsigned y = 0; y < out.height; ++y)
          std::memcpy(out.pixels.data() + rowBytes * y, plane + static_cast<std::size_t>(stride) * y, rowBytes);
        decoded = true;
      }
      heif_image_release(image);
    }
  }
  if (handle != nullptr) heif_image_handle_release(handle);
  heif_context_free(context);
  return decoded;
}

bool encodePNG(const Raster& raster, unsigned char** png, std::size_t* pngSize) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = raster.width;
  image.height = raster.height;
  image.format = raster.channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  png_alloc_size_t size = 0;
  if (!png_image_write_to_memory(&image, nullptr, &size, 0, raster.pixels.data(), 0, nullptr)) return false;
  auto* buffer = static_cast<unsigned char*>(std::malloc(size));
  if (buffer == nullptr) return false;
  if (!png_image_write_to_memory(&image, buffer, &size, 0, raster.pixels.data(), 0, nullptr)) {
    std::free(buffer);
    return false;
  }
  *png = buffer;
  *pngSize = size;
  return true;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int quillon_frame_to_png(const unsigned char* frame, std::size_t size,
                                                                          unsigned char** png, std::size_t* pngSize) {
  using namespace quillon::mcp;
  Raster raster;
  const bool decoded = isPNG(frame, size)    ? decodePNG(frame, size, raster)
                       : isJPEG(frame, size) ? decodeJPEG(frame, size, raster)
                                             : decodeHEIF(frame, size, raster);
  if (!decoded) return kFrameNotDecodable;
  return encodePNG(raster, png, pngSize) ? kFrameConverted : kFrameNotEncodable;
}

extern "C" __attribute__((visibility("default"))) void quillon_frame_free(unsigned char* png) { std::free(png); }
