#include "QuillonMCPLinux/PNGFile.hpp"

#include <dlfcn.h>

#include "QuillonBase/Process.hpp"

namespace quillon::mcp {

std::string PNGFile::besideExecutable() {
  const std::string executable = base::executablePath();
  const auto slash = executable.rfind('/');
  return (slash == std::string::npos ? std::string(".") : executable.substr(0, slash)) + "/" + kFrameCodecLibrary;
}

void PNGFile::load() {
  // The library stays loaded for the life of the process; it is never closed.
  void* handle = ::dlopen(library_.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = ::dlerror();
    loadFailure_ = "the PNG writer could not be loaded: " + std::string(why != nullptr ? why : library_);
    return;
  }
  convert_ = reinterpret_cast<FrameToPNGFunction>(::dlsym(handle, kFrameToPNGSymbol));
  release_ = reinterpret_cast<FrameFreeFunction>(::dlsym(handle, kFrameFreeSymbol));
  if (convert_ == nullptr || release_ == nullptr) {
    convert_ = nullptr;
    loadFailure_ = "the PNG writer could not be loaded: " + library_ + " lacks " + kFrameToPNGSymbol;
  }
}

PNGFile::Converted PNGFile::fromFrame(std::span<const std::uint8_t> frame) {
  std::call_once(loaded_, [this] { load(); });
  if (convert_ == nullptr) return Failure{loadFailure_};
  unsigned char* png = nullptr;
  std::size_t size = 0;
  switch (convert_(frame.data(), frame.size(), &png, &size)) {
    case kFrameConverted: {
      std::vector<std::uint8_t> bytes(png, png + size);
      release_(png);
      return bytes;
    }
    case kFrameNotDecodable:
      return Failure{kNotDecodable};
    default:
      return Failure{kNotEncodable};
  }
}

}  // namespace quillon::mcp
