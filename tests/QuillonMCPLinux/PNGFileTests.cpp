// Stored frames through the codec library, loaded the way the bridge loads it, and the PNG bytes
// decoded again to compare pixels.
#include <gtest/gtest.h>

#include <jpeglib.h>

#include "QuillonMCPLinux/PNGFile.hpp"
#include "TestFrames.hpp"

namespace quillon::test {
namespace {

using mcp::PNGFile;

PNGFile& codecs() {
  static PNGFile file(QUILLON_FRAME_CODEC_PATH);
  return file;
}

Pixels convertedPixels(const std::vector<std::uint8_t>& frame) {
  auto converted = codecs().fromFrame(frame);
  if (auto* failure = std::get_if<PNGFile::Failure>(&converted)) {
    ADD_FAILURE() << failure->message;
    return {};
  }
  return decodePNG(std::get<std::vector<std::uint8_t>>(converted)).value_or(Pixels{});
}

TEST(PNGFile, KeepsThePixelsOfAPNGWithOrWithoutAlpha) {
  for (const unsigned channels : {3u, 4u}) {
    const Pixels pattern = testPattern(37, 21, channels);
    EXPECT_EQ(convertedPixels(encodePNG(pattern)), pattern) << channels << " channels";
  }
}

TEST(PNGFile, WritesAnHEICAsLibheifReadsIt) {
  const auto heic = encodeHEIC(testPattern(64, 48));
  if (!heic) GTEST_SKIP() << "this libheif has no HEVC encoder to make a frame with";
  const auto reference = decodeHEIC(*heic);
  ASSERT_TRUE(reference);
  EXPECT_EQ(convertedPixels(*heic), *reference);
}

TEST(PNGFile, ReadsAJPEG) {
  // A 16x8 JPEG of one grey: lossy, but a flat colour survives within a step or two.
  jpeg_compress_struct info;
  jpeg_error_mgr error;
  info.err = jpeg_std_error(&error);
  jpeg_create_compress(&info);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = 16;
  info.image_height = 8;
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_start_compress(&info, TRUE);
  std::vector<unsigned char> row(16 * 3, 128);
  while (info.next_scanline < 8) {
    JSAMPROW line = row.data();
    jpeg_write_scanlines(&info, &line, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  const std::vector<std::uint8_t> jpeg(bytes, bytes + size);
  std::free(bytes);

  const Pixels pixels = convertedPixels(jpeg);
  ASSERT_EQ(pixels.width, 16u);
  ASSERT_EQ(pixels.height, 8u);
  for (const auto value : pixels.data) EXPECT_NEAR(value, 128, 2);
}

TEST(PNGFile, BytesThatAreNoImageOrAreCutShortDoNotDecode) {
  const auto png = encodePNG(testPattern(8, 8));
  for (const std::vector<std::uint8_t>& frame :
       {std::vector<std::uint8_t>{}, std::vector<std::uint8_t>{'n', 'o', 'p', 'e'},
        std::vector<std::uint8_t>(png.begin(), png.begin() + static_cast<long>(png.size() / 2)),
        std::vector<std::uint8_t>{0xFF, 0xD8, 0xFF, 0x00}}) {
    auto converted = codecs().fromFrame(frame);
    ASSERT_TRUE(std::holds_alternative<PNGFile::Failure>(converted));
    EXPECT_EQ(std::get<PNGFile::Failure>(converted).message, "the stored frame is not a decodable image");
  }
}

TEST(PNGFile, AMissingCodecLibraryFailsEveryFrameInItsOwnWords) {
  PNGFile missing("/nonexistent/libquillon-frames.so");
  auto converted = missing.fromFrame(encodePNG(testPattern(2, 2)));
  ASSERT_TRUE(std::holds_alternative<PNGFile::Failure>(converted));
  EXPECT_TRUE(std::get<PNGFile::Failure>(converted).message.starts_with("the PNG writer could not be loaded: "));
}

}  // namespace
}  // namespace quillon::test
