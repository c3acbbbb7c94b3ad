// ClientStoreMode: how every client of the suite writes its private files, readable by the
// owner only.
//
// `write` never lets the file exist with wider permissions, not even for a moment: the bytes go
// to a new file created with mode 0600 beside the target, are flushed to disk, and the new file
// is renamed over the target. A reader sees the old file or the whole new one, never a part; a
// symbolic link at the target is replaced, not written through. The old file's permissions are
// not carried over.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quillon::wire {

struct ClientStoreMode {
  // Permission bits: 448 (0700), owner read, write and search; 384 (0600), owner read and write.
  static constexpr unsigned folder = 0700;
  static constexpr unsigned file = 0600;
  static constexpr std::filesystem::perms privateFolder = std::filesystem::perms::owner_all;
  static constexpr std::filesystem::perms privateFile =
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;

  // Writes `data` to `toFile`, leaving it with permission `file`. The folder must exist. Nothing
  // when written, else why not, naming the file.
  static std::optional<std::string> write(std::span<const std::uint8_t> data, const std::string& toFile);
  static std::optional<std::string> write(std::string_view text, const std::string& toFile) {
    return write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), toFile);
  }
};

}  // namespace quillon::wire
