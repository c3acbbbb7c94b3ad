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
#include <span>
#include <string>
#include <string_view>

namespace quillon::wire {

// What a private write did: nothing to report, or why it failed, naming the file.
struct StoreStatus {
  std::string failure;
  bool ok() const { return failure.empty(); }
};

struct ClientStoreMode {
  // Permission bits: 448 (0700), owner read, write and search; 384 (0600), owner read and write.
  static constexpr unsigned folder = 0700;
  static constexpr unsigned file = 0600;
  static constexpr std::filesystem::perms privateFolder = std::filesystem::perms::owner_all;
  static constexpr std::filesystem::perms privateFile =
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;

  // Creates the folder and any missing parents, each new one with permission `folder`. Folders
  // that exist are left as they are.
  static StoreStatus createFolder(const std::string& path);

  // Writes `data` to `toFile`, leaving it with permission `file`. The folder must exist.
  static StoreStatus write(std::span<const std::uint8_t> data, const std::string& toFile);
  static StoreStatus write(std::string_view text, const std::string& toFile) {
    return write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), toFile);
  }
};

}  // namespace quillon::wire
