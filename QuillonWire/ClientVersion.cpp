#include "QuillonWire/ClientVersion.hpp"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "QuillonBase/Process.hpp"

namespace quillon::wire {
namespace {

namespace fs = std::filesystem;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// C stdio rather than an ifstream: the first stream would build the C++ locale with all its facets,
// which costs every start of the bridge (the version goes out in the initialize reply) a good part
// of its memory and time.
std::optional<std::string> readSmallFile(const fs::path& path) {
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) return std::nullopt;
  const std::unique_ptr<std::FILE, CloseFile> in(std::fopen(path.c_str(), "rb"));
  if (!in) return std::nullopt;
  // A version file is a few bytes; a huge file here is not one of ours.
  std::string text(4096, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), in.get()));
  return text;
}

// The short version string of Contents/Info.plist when the executable sits in Contents/MacOS.
std::optional<std::string> bundleVersion(const fs::path& executable) {
  const fs::path folder = executable.parent_path();
  if (folder.filename() != "MacOS") return std::nullopt;
  const auto plist = readSmallFile(folder.parent_path() / "Info.plist");
  if (!plist) return std::nullopt;
  const std::string key = "<key>CFBundleShortVersionString</key>";
  const auto at = plist->find(key);
  if (at == std::string::npos) return std::nullopt;
  const auto open = plist->find("<string>", at + key.size());
  if (open == std::string::npos) return std::nullopt;
  const auto start = open + 8;
  const auto close = plist->find("</string>", start);
  if (close == std::string::npos) return std::nullopt;
  // Only blanks may stand between the key and its value.
  for (auto i = at + key.size(); i < open; ++i)
    if (!isBlank((*plist)[i])) return std::nullopt;
  return ClientVersion::shaped(std::string_view(*plist).substr(start, close - start));
}

}  // namespace

std::optional<std::string> ClientVersion::shaped(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  if (text.empty()) return std::nullopt;
  bool partHasDigit = false;
  for (char c : text) {
    if (c == '.') {
      if (!partHasDigit) return std::nullopt;
      partHasDigit = false;
    } else if (c >= '0' && c <= '9') {
      partHasDigit = true;
    } else {
      return std::nullopt;
    }
  }
  if (!partHasDigit) return std::nullopt;
  return std::string(text);
}

std::string ClientVersion::resolve(const std::string& executablePath) {
  if (executablePath.empty()) return std::string(unknown);
  const fs::path executable(executablePath);
  if (auto version = bundleVersion(executable)) return *version;
  fs::path folder = executable.parent_path();
  for (int level = 0; level < versionFileLevels && !folder.empty(); ++level) {
    if (auto text = readSmallFile(folder / "VERSION"))
      if (auto version = shaped(*text)) return *version;
    const fs::path up = folder.parent_path();
    if (up == folder) break;
    folder = up;
  }
  return std::string(unknown);
}

const std::string& ClientVersion::current() {
  static const std::string version = resolve(base::executablePath());
  return version;
}

}  // namespace quillon::wire
