// The boundary between PNGFile and the codec library it loads on the first frame. Plain C types
// only: the library carries its own copy of the codecs' C++ runtime needs, and nothing but bytes
// and a status crosses.
#pragma once

#include <cstddef>

namespace quillon::mcp {

enum FrameCodecStatus : int {
  kFrameConverted = 0,
  kFrameNotDecodable = 1,
  kFrameNotEncodable = 2,
};

// Converts one stored frame (HEIC, PNG or JPEG bytes) to PNG. On kFrameConverted, *png holds
// *pngSize bytes to be released with the library's free function.
using FrameToPNGFunction = int (*)(const unsigned char* frame, std::size_t size, unsigned char** png,
                                   std::size_t* pngSize);
using FrameFreeFunction = void (*)(unsigned char* png);

inline constexpr const char* kFrameToPNGSymbol = "quillon_frame_to_png";
inline constexpr const char* kFrameFreeSymbol = "quillon_frame_free";
inline constexpr const char* kFrameCodecLibrary = "libquillon-frames.so";

}  // namespace quillon::mcp
