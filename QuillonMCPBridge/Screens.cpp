#include "QuillonMCPBridge/Screens.hpp"

#include "QuillonMCPBridge/FallbackAnswers.hpp"
#include "QuillonMCPBridge/TextCleaning.hpp"
#include "QuillonMCPBridge/ToolResult.hpp"
#include "QuillonWire/Base64.hpp"

namespace quillon::bridge {

using nlohmann::json;
using wire::GatewayResponse;
namespace answer = wire::answer;

namespace {

constexpr const char* kNotDecodable = "the stored frame is not a decodable image";

const ScreenSeams kNoSeams{};

FrameWritten writeFrame(const ScreenSeams& seams, std::span<const std::uint8_t> frame, std::int64_t moment,
                        const std::string& window) {
  if (!seams.frameToPNG) return ScreenFailure{kScreenSeamNotWired};
  return seams.frameToPNG(frame, moment, window);
}

std::string readPiece(const std::string& path) { return "PNG: " + path + "\nRead that path to see the window full size."; }

std::string notWritten(std::int64_t moment, const ScreenFailure& failure) {
  return "the frame for moment " + std::to_string(moment) + " could not be written: " + failure.text;
}

}  // namespace

Prepared prepareScreenGet(const ToolCall& call) {
  const auto moment = call.integer("id");
  if (!moment) return Refusal{"screen_get needs an integer 'id' — Moment id."};
  return readRequest(wire::read::GetScreen{.momentID = *moment, .window = call.required("window")});
}

Prepared prepareScreenOpen(const ToolCall& call) {
  static const Refusal refusal{
      "screen_open needs 'screens': an array of {moment, window} objects, moment an integer Moment id and window a "
      "[wN] handle (omit it for every framed window)."};
  const json* screens = call.given("screens");
  if (screens == nullptr || !screens->is_array()) return refusal;
  std::vector<wire::ScreenRef> refs;
  for (const json& item : *screens) {
    if (!item.is_object()) return refusal;
    const ToolCall itemCall{.name = call.name, .arguments = item, .subagent = {}, .session = {}, .bridgeSession = {},
                            .writerName = {}, .screens = nullptr};
    const auto moment = itemCall.integer("moment");
    if (!moment) return refusal;
    refs.push_back(wire::ScreenRef{.moment = *moment, .window = itemCall.opt("window")});
  }
  return readRequest(wire::read::OpenScreens{.screens = std::move(refs)});
}

json screenGet(const GatewayResponse& response, std::int64_t moment, const std::string& window,
               const ScreenSeams& seams) {
  if (const auto* text = std::get_if<answer::Text>(&response.value)) return textContent(text->text);
  if (const auto* image = std::get_if<answer::Image>(&response.value)) {
    const auto bytes = wire::base64Decode(image->base64);
    if (!bytes) return errorContent(kNotDecodable);
    const FrameWritten written = writeFrame(seams, *bytes, moment, window);
    if (const auto* failure = std::get_if<ScreenFailure>(&written)) return errorContent(failure->text);
    return textContent(readPiece(std::get<std::string>(written)));
  }
  if (const auto* images = std::get_if<answer::Images>(&response.value)) {
    std::string out;
    for (const auto& shot : images->images) {
      if (!shot.heic) continue;
      const FrameWritten written = writeFrame(seams, *shot.heic, shot.moment, shot.window);
      if (!out.empty()) out += "\n\n";
      if (const auto* failure = std::get_if<ScreenFailure>(&written))
        out += notWritten(shot.moment, *failure);
      else
        out += readPiece(std::get<std::string>(written));
    }
    return textContent(out.empty() ? "—" : out);
  }
  return fallback(response);
}

json screenOpen(const GatewayResponse& response, const ScreenSeams& seams) {
  if (const auto* text = std::get_if<answer::Text>(&response.value)) return textContent(text->text);
  const auto* images = std::get_if<answer::Images>(&response.value);
  if (images == nullptr) return fallback(response);
  if (images->images.empty()) return textContent("No screens were named to open.");

  std::vector<std::string> files;
  std::string lines;
  for (const auto& shot : images->images) {
    // The window handle and the note are the gateway's words, so they are cleaned like any.
    lines += "\n- moment " + std::to_string(shot.moment) + " " + defangEnvelope(shot.window) + ": ";
    const std::optional<std::string> note = shot.note ? std::optional(defangEnvelope(*shot.note)) : std::nullopt;
    if (!shot.heic) {
      lines += note.value_or("no picture");
      continue;
    }
    const FrameWritten written = writeFrame(seams, *shot.heic, shot.moment, shot.window);
    if (const auto* failure = std::get_if<ScreenFailure>(&written)) {
      lines += notWritten(shot.moment, *failure);
      continue;
    }
    files.push_back(std::get<std::string>(written));
    lines += files.back();
    if (note) lines += " (" + *note + ")";
  }

  std::string heading = "Nothing was opened.";
  if (!files.empty()) {
    const std::optional<std::string> failed =
        seams.openFiles ? seams.openFiles(files) : std::optional<std::string>(kScreenSeamNotWired);
    const std::string count = std::to_string(files.size());
    heading = failed ? "Wrote " + count + ", but `open` failed: " + *failed : "Opened " + count + " on the Mac with `open`:";
  }
  return textContent(heading + lines);
}

json screenGetOf(const GatewayResponse& response, const ToolCall& call) {
  return screenGet(response, call.integer("id").value_or(0), call.required("window"),
                   call.screens != nullptr ? *call.screens : kNoSeams);
}

json screenOpenOf(const GatewayResponse& response, const ToolCall& call) {
  return screenOpen(response, call.screens != nullptr ? *call.screens : kNoSeams);
}

}  // namespace quillon::bridge
