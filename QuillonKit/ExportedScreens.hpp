// ExportedScreens: the private folder where screen frames are written as PNG files for the model
// to read and for the desktop to open.
//
// The folder is "<stem>-screens" inside the user's temporary folder; on Linux the stem carries
// the user's id ("quillon-1000-screens"), because /tmp is shared by every user of the machine.
// It is created with mode 0700 on the first write. Anyone who could put a file or a link there
// could show the model a picture of their choosing or make us write elsewhere, so a folder that is
// a link, not a folder, someone else's, or writable by group or others is refused, and nothing is
// written through it.
//
// A file is "moment-<n>-<window>.png", written 0600 relative to the folder's own descriptor and
// never through a link, under a temporary name first and then renamed over any earlier file: a
// reader sees the old picture or the new one, never half of one.
//
// Stateless apart from the folder's path; safe to use from several threads. Never throws.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "QuillonKit/Environment.hpp"

namespace quillon::kit {

class ExportedScreens {
 public:
  struct Failure {
    std::string message;
    bool operator==(const Failure&) const = default;
  };
  // The path of the file written, or why nothing was.
  using Written = std::variant<std::string, Failure>;

  explicit ExportedScreens(std::string folder) : folder_(std::move(folder)) {}

  // The folder for this process's user: $TMPDIR when it names an absolute path, else /tmp.
  // Only reads the environment; the folder is made by the first write.
  static std::optional<ExportedScreens> live(const Environment& environment, uid_t user);
  static std::optional<ExportedScreens> live();

  const std::string& folder() const { return folder_; }

  // "moment-<n>-<window>.png". A window handle made only of letters, digits, "_" and "-" (up to
  // 64 of them) is used as it is; any other name is replaced by a hash of it, so a hostile handle
  // can neither leave the folder nor make two windows share a file.
  static std::string fileName(std::int64_t moment, const std::string& window);

  Written write(std::span<const std::uint8_t> png, std::int64_t moment, const std::string& window) const;

 private:
  std::string folder_;
};

}  // namespace quillon::kit
