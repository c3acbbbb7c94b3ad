// The lineage probe on macOS. An update replaces the application bundle, so the file now at our
// executable's path was created after this process started; the bundle around it tells whose it
// is and which version it brings.
#include <CoreFoundation/CoreFoundation.h>
#include <sys/attr.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>

#include "QuillonKit/ClientLineage.hpp"

namespace quillon::kit {

namespace {

// Taken while the process loads: the moment later files are measured against.
const auto processStart = std::chrono::system_clock::now();

// The creation date of the file now at `path` (not its modification date, which an installer
// may carry over from the archive).
bool executableReplaced(const std::string& path) {
  attrlist request{};
  request.bitmapcount = ATTR_BIT_MAP_COUNT;
  request.commonattr = ATTR_CMN_CRTIME;
  struct __attribute__((packed)) {
    uint32_t length;
    timespec created;
  } answer{};
  if (::getattrlist(path.c_str(), &request, &answer, sizeof answer, 0) != 0) return false;
  const auto created = std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
      std::chrono::seconds(answer.created.tv_sec) + std::chrono::nanoseconds(answer.created.tv_nsec)));
  return created > processStart;
}

std::optional<std::string> text(CFTypeRef value) {
  if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return std::nullopt;
  char buffer[256];
  if (!CFStringGetCString(static_cast<CFStringRef>(value), buffer, sizeof buffer, kCFStringEncodingUTF8))
    return std::nullopt;
  return std::string(buffer);
}

struct Occupant {
  std::optional<std::string> bundleID;
  std::optional<std::string> version;
};

// The nearest enclosing ".app" bundle of the executable.
Occupant occupantOf(const std::string& executablePath) {
  namespace fs = std::filesystem;
  for (fs::path folder = fs::path(executablePath).parent_path(); folder.has_relative_path(); folder = folder.parent_path()) {
    if (folder.extension() != ".app") continue;
    const std::string bundlePath = folder.string();
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bundlePath.data()), static_cast<CFIndex>(bundlePath.size()), true);
    if (url == nullptr) return {};
    CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    if (bundle == nullptr) return {};
    Occupant occupant{text(CFBundleGetIdentifier(bundle)),
                      text(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleShortVersionString")))};
    CFRelease(bundle);
    return occupant;
  }
  return {};
}

}  // namespace

std::optional<ClientLineage> ClientLineage::probe(const std::string& executablePath) {
  if (executablePath.empty()) return std::nullopt;
  if (!executableReplaced(executablePath)) return std::nullopt;
  const Occupant occupant = occupantOf(executablePath);
  return judge(true, occupant.bundleID, occupant.version);
}

}  // namespace quillon::kit
