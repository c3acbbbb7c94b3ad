// The door's framing on both ends: arbitrary bytes, cut into chunks, through LineBuffer and each
// line through DoorFrame::decode. The first input byte picks the line limit and the second the
// chunk size, so the fuzzer reaches lines at, just under and just over the limit. Checked:
//   - a line is never longer than the limit, nor holds a "\n"; the buffer never holds more than
//     the limit and one chunk; once a line passes the limit, nothing more comes out;
//   - the lines out are exactly the input's lines, in order, up to an over-long one;
//   - a decoded line encodes to one line ending in its only "\n", which decodes to the same
//     DoorLine and encodes to the same bytes again.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "QuillonBase/LineBuffer.hpp"
#include "QuillonKit/DoorFrame.hpp"

namespace {

using namespace quillon::kit;
using quillon::base::LineBuffer;

[[noreturn]] void fail(const char* what, std::string_view detail) {
  std::fprintf(stderr, "door_frame_fuzz: %s: %.*s\n", what, static_cast<int>(detail.size() > 2000 ? 2000 : detail.size()),
               detail.data());
  std::abort();
}

void checkRoundTrip(std::string_view line) {
  const auto decoded = DoorFrame::decode(line);
  if (!decoded) return;
  const auto encoded = DoorFrame::encode(*decoded);
  // Whatever decodes came from one line, so its payload and event are one line of JSON each.
  if (!encoded) fail("a decoded line does not encode", line);
  if (encoded->empty() || encoded->back() != '\n' || encoded->find('\n') != encoded->size() - 1)
    fail("an encoded line is not one line", *encoded);
  const std::string_view body(encoded->data(), encoded->size() - 1);
  const auto again = DoorFrame::decode(body);
  if (!again || !(*again == *decoded)) fail("an encoded line decodes to another message", *encoded);
  const auto reencoded = DoorFrame::encode(*again);
  if (!reencoded || *reencoded != *encoded) fail("encoding is not stable", *encoded);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t limit = data[0] < 0xF0 ? data[0] : DoorFrame::kMaxLineBytes;
  const std::size_t chunk = 1 + data[1] % 64;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);

  LineBuffer lines(limit);
  std::size_t expectedAt = 0;  // where in `bytes` the next line should start
  for (std::size_t at = 0; at < bytes.size(); at += chunk) {
    lines.append(bytes.substr(at, chunk));
    if (lines.buffered() > limit + chunk && !lines.overlong()) fail("the buffer outgrew its bound", bytes);
    while (const auto line = lines.next()) {
      if (line->size() > limit) fail("a line passed the limit", *line);
      const auto feed = bytes.find('\n', expectedAt);
      if (feed == std::string_view::npos || bytes.substr(expectedAt, feed - expectedAt) != *line)
        fail("a line out is not the next line in", *line);
      expectedAt = feed + 1;
      checkRoundTrip(*line);
    }
    if (lines.overlong()) {
      // The line that broke the limit starts where the last one handed out ended.
      const auto feed = bytes.find('\n', expectedAt);
      const std::size_t seen = (feed == std::string_view::npos ? bytes.size() : feed) - expectedAt;
      if (seen <= limit) fail("overlong without a line over the limit", bytes);
      lines.append(bytes);
      if (lines.next()) fail("a line came out after an over-long one", bytes);
      return 0;
    }
  }
  // Whatever is left is the last line, still waiting for its "\n".
  if (lines.buffered() != bytes.size() - expectedAt) fail("bytes went missing", bytes);
  lines.shrink();
  lines.append("\n");
  if (const auto last = lines.next()) {
    if (*last != bytes.substr(expectedAt)) fail("the last line changed", *last);
    checkRoundTrip(*last);
  } else if (!lines.overlong()) {
    fail("the last line did not come out", bytes);
  }
  return 0;
}
