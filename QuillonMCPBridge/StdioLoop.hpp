// StdioLoop: the bridge's read loop. One JSON-RPC message per line on the input, one compact JSON
// reply per line on the output, strictly one at a time: the next line is not read until the reply
// to the previous one is written and the exit gate has been told.
//
// A line that is not a JSON object (bad JSON, a batch array, a bare string, nesting deeper than
// any real message) gets no reply; the loop hands a one-line note to `note` and reads on. Bytes
// that are not UTF-8 become U+FFFD before parsing, as a text reader would make them.
//
// run() returns when the process should end: at end of input, when the exit gate reports an
// ending deferred during a request, or when the output is gone. The caller exits with status 0.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::bridge {

class MCPBridge;
class MCPExitGate;

// Text with every ill-formed UTF-8 sequence replaced by U+FFFD (one per maximal ill-formed part).
std::string repairedUTF8(std::string_view bytes);
// The same, or nothing as soon as the repaired text would pass `maxBytes`: each bad byte becomes
// three, so a line within the limit could otherwise triple in memory.
std::optional<std::string> repairedUTF8Within(std::string_view bytes, std::size_t maxBytes);

// JSON text whose string escapes of lone UTF-16 surrogates (a "\ud83d" not followed by its low
// half, or a low half alone) are "\ufffd" instead, as a text reader would decode them; other text
// is returned unchanged. Writers cutting a string inside an emoji produce them.
std::string withLoneSurrogatesReplaced(std::string_view json);

// The line as a JSON object, or nothing when it is not one. A lone surrogate escape reads as U+FFFD.
std::optional<nlohmann::json> parseFrame(std::string_view line);

// "unparseable stdin frame — N bytes, dropped"
std::string unparseableNote(std::size_t bytes);

class StdioLoop {
 public:
  // The deepest nesting a message may have; deeper input is dropped like any unparseable line.
  static constexpr std::size_t kMaxDepth = 512;
  // A longer line is skipped without being held in memory, and dropped.
  static constexpr std::size_t kMaxLineBytes = std::size_t{64} << 20;

  // Borrows all four; they must outlive the loop.
  StdioLoop(int input, int output, MCPBridge& bridge, MCPExitGate& gate,
            std::function<void(std::string)> note);

  void run();

 private:
  // Writes `line` and a line feed. False when the reader of our output has gone.
  bool writeLine(std::string_view line);
  // Handles one complete line; false when the loop must end.
  bool take(std::string_view line);

  int input_;
  int output_;
  MCPBridge& bridge_;
  MCPExitGate& gate_;
  std::function<void(std::string)> note_;
};

}  // namespace quillon::bridge
