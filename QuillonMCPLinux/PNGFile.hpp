// PNGFile: turns a stored screen frame into PNG bytes. The daemon keeps frames as HEIC; PNG and
// JPEG bytes are accepted as well.
//
// The codecs live in a library of their own (libquillon-frames.so, installed beside the
// executable) that is loaded with dlopen on the first frame, never at start: the bridge starts
// with every agent session and libheif alone brings several video decoders. A library that cannot
// be loaded is a failure of every frame, reported in its own words.
//
// Thread-safe: the library is loaded once, whichever thread asks first. Never throws.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "QuillonMCPLinux/FrameCodec.hpp"

namespace quillon::mcp {

class PNGFile {
 public:
  struct Failure {
    std::string message;
  };
  using Converted = std::variant<std::vector<std::uint8_t>, Failure>;

  static constexpr const char* kNotDecodable = "the stored frame is not a decodable image";
  static constexpr const char* kNotEncodable = "the stored frame could not be encoded as a PNG";

  // The codecs in the library at `codecLibrary`, loaded on the first frame.
  explicit PNGFile(std::string codecLibrary) : library_(std::move(codecLibrary)) {}
  PNGFile(const PNGFile&) = delete;
  PNGFile& operator=(const PNGFile&) = delete;

  // The codec library beside the running executable.
  static std::string besideExecutable();

  Converted fromFrame(std::span<const std::uint8_t> frame);

 private:
  void load();

  const std::string library_;
  std::once_flag loaded_;
  // Set once by load(), read only after it.
  FrameToPNGFunction convert_ = nullptr;
  FrameFreeFunction release_ = nullptr;
  std::string loadFailure_;
};

}  // namespace quillon::mcp
