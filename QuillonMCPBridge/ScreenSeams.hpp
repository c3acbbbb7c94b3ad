// ScreenSeams: the two closures through which the screen tools reach the machine, handed to the
// bridge by the entry: `frameToPNG` writes one stored frame as a PNG file and answers its path,
// `openFiles` shows written files on the desktop. Either answers its failure as text the model
// reads; neither throws. A bridge made without them (tests, tools that never show screens)
// answers every frame with "this bridge has no screen writer wired".
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace quillon::bridge {

struct ScreenFailure {
  std::string text;
};
// The path of the PNG file written, or why it was not.
using FrameWritten = std::variant<std::string, ScreenFailure>;

struct ScreenSeams {
  std::function<FrameWritten(std::span<const std::uint8_t> frame, std::int64_t moment, const std::string& window)>
      frameToPNG;
  // Nothing when every file was opened, else the failure's text.
  std::function<std::optional<std::string>(const std::vector<std::string>& paths)> openFiles;
};

inline constexpr const char* kScreenSeamNotWired = "this bridge has no screen writer wired";

}  // namespace quillon::bridge
