// ClientVersion: this executable's own version, as "initialize" reports it and the door shows it.
//
// Resolved once, lazily, from where the running executable sits: the bundle's Info.plist (the
// executable in Contents/MacOS, the list in Contents), else a file named VERSION in the
// executable's folder or one of the folders above it, else "0". A text counts only when it is
// shaped like a version: dot-separated runs of ASCII digits (1.4.2, 12).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillon::wire {

struct ClientVersion {
  static constexpr std::string_view unknown = "0";
  // How many folders are searched for VERSION: the executable's own and this many minus one above.
  static constexpr int versionFileLevels = 4;

  // The version of the running executable; computed on first call, thread-safe.
  static const std::string& current();

  // The trimmed text when it is shaped like a version, else nothing.
  static std::optional<std::string> shaped(std::string_view text);

  // The version found for an executable at `executablePath`, by the same search as `current`.
  static std::string resolve(const std::string& executablePath);
};

}  // namespace quillon::wire
