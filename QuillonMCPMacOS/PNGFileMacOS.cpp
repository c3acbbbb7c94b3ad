#include "QuillonMCPMacOS/PNGFile.hpp"

#include <CoreFoundation/CoreFoundation.h>
#include <ImageIO/ImageIO.h>

namespace quillon::mcp {

namespace {

// Releases a Core Foundation object when it goes out of scope.
template <class T>
struct Owned {
  T ref;
  explicit Owned(T value) : ref(value) {}
  ~Owned() {
    if (ref != nullptr) CFRelease(ref);
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
};

}  // namespace

PNGFile::Converted PNGFile::fromFrame(std::span<const std::uint8_t> frame) {
  Owned<CFDataRef> input(CFDataCreate(nullptr, frame.data(), static_cast<CFIndex>(frame.size())));
  Owned<CGImageSourceRef> source(input.ref ? CGImageSourceCreateWithData(input.ref, nullptr) : nullptr);
  Owned<CGImageRef> image(source.ref ? CGImageSourceCreateImageAtIndex(source.ref, 0, nullptr) : nullptr);
  if (image.ref == nullptr) return Failure{kNotDecodable};

  Owned<CFMutableDataRef> output(CFDataCreateMutable(nullptr, 0));
  Owned<CGImageDestinationRef> destination(
      output.ref ? CGImageDestinationCreateWithData(output.ref, CFSTR("public.png"), 1, nullptr) : nullptr);
  if (destination.ref == nullptr) return Failure{kNotEncodable};
  CGImageDestinationAddImage(destination.ref, image.ref, nullptr);
  if (!CGImageDestinationFinalize(destination.ref)) return Failure{kNotEncodable};
  const auto* bytes = CFDataGetBytePtr(output.ref);
  return std::vector<std::uint8_t>(bytes, bytes + CFDataGetLength(output.ref));
}

}  // namespace quillon::mcp
