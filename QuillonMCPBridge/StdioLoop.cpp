#include "QuillonMCPBridge/StdioLoop.hpp"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/LineBuffer.hpp"
#include "QuillonMCPBridge/ExitGate.hpp"
#include "QuillonMCPBridge/MCPBridge.hpp"
#include "QuillonWire/JSONNesting.hpp"

namespace quillon::bridge {

using nlohmann::json;

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";

// Length of the well-formed sequence at `i`, or 0 with `bad` set to the length of the maximal
// ill-formed part to replace (the Unicode "maximal subpart" rule).
std::size_t sequenceLength(std::string_view s, std::size_t i, std::size_t& bad) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char lead = byte(i);
  std::size_t need;
  unsigned char lo = 0x80, hi = 0xBF;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    need = 1;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    need = 2;
    if (lead == 0xE0) lo = 0xA0;
    if (lead == 0xED) hi = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    need = 3;
    if (lead == 0xF0) lo = 0x90;
    if (lead == 0xF4) hi = 0x8F;
  } else {
    bad = 1;
    return 0;
  }
  std::size_t k = 1;
  for (; k <= need; ++k) {
    if (i + k >= s.size()) break;
    const unsigned char c = byte(i + k);
    const unsigned char low = k == 1 ? lo : 0x80, high = k == 1 ? hi : 0xBF;
    if (c < low || c > high) break;
  }
  if (k > need) return need + 1;
  bad = k;
  return 0;
}

}  // namespace

std::string repairedUTF8(std::string_view bytes) { return *repairedUTF8Within(bytes, SIZE_MAX); }

std::optional<std::string> repairedUTF8Within(std::string_view bytes, std::size_t maxBytes) {
  if (bytes.size() > maxBytes) return std::nullopt;
  std::string out;
  std::size_t copied = 0;  // bytes[copied, i) are well-formed and not yet appended
  std::size_t i = 0;
  while (i < bytes.size()) {
    if (static_cast<unsigned char>(bytes[i]) < 0x80) {
      ++i;
      continue;
    }
    std::size_t bad = 0;
    if (const std::size_t length = sequenceLength(bytes, i, bad)) {
      i += length;
      continue;
    }
    // Each replacement adds at most two bytes over the ones it replaces.
    if (out.size() + (i - copied) + 3 + (bytes.size() - i - bad) > maxBytes) return std::nullopt;
    if (out.empty()) out.reserve(bytes.size() + 16);
    out.append(bytes.substr(copied, i - copied));
    out.append(kReplacement);
    i += bad;
    copied = i;
  }
  if (copied == 0) return std::string(bytes);
  out.append(bytes.substr(copied));
  return out;
}

namespace {

// The value of the four hex digits at `at`, or -1.
int hexQuad(std::string_view s, std::size_t at) {
  if (at + 4 > s.size()) return -1;
  int value = 0;
  for (std::size_t k = at; k < at + 4; ++k) {
    const char c = s[k];
    const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    if (digit < 0) return -1;
    value = value * 16 + digit;
  }
  return value;
}

}  // namespace

std::string withLoneSurrogatesReplaced(std::string_view text) {
  std::string out;
  std::size_t copied = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (!inString) {
      inString = c == '"';
      continue;
    }
    if (c == '"') {
      inString = false;
      continue;
    }
    if (c != '\\' || i + 1 >= text.size()) continue;
    if (text[i + 1] != 'u') {
      ++i;  // the escaped character, whatever it is
      continue;
    }
    const int unit = hexQuad(text, i + 2);
    if (unit < 0xD800 || unit > 0xDFFF) {
      i += 1;
      continue;
    }
    const bool high = unit <= 0xDBFF;
    const int next = i + 7 < text.size() && text[i + 6] == '\\' && text[i + 7] == 'u' ? hexQuad(text, i + 8) : -1;
    if (high && next >= 0xDC00 && next <= 0xDFFF) {
      i += 11;  // a whole pair
      continue;
    }
    out.append(text.substr(copied, i - copied)).append("\\ufffd");
    i += 5;
    copied = i + 1;
  }
  if (copied == 0) return std::string(text);
  return out.append(text.substr(copied));
}

std::optional<json> parseFrame(std::string_view line) {
  // Real messages nest a few levels; a parser would happily build a 100,000-deep value that later
  // recursion (serialising an echoed id, freeing it) could not survive.
  if (wire::holdsNulByte(line) || wire::nestsDeeperThan(line, StdioLoop::kMaxDepth)) return std::nullopt;
  json value = json::parse(line, nullptr, /*allow_exceptions=*/false);
  // Only a line the parser refused is scanned for lone surrogates: well-formed input pays nothing.
  if (value.is_discarded() && line.find("\\u") != std::string_view::npos)
    value = json::parse(withLoneSurrogatesReplaced(line), nullptr, /*allow_exceptions=*/false);
  if (value.is_discarded() || !value.is_object()) return std::nullopt;
  return value;
}

std::string unparseableNote(std::size_t bytes) {
  return "unparseable stdin frame — " + std::to_string(bytes) + " bytes, dropped";
}

StdioLoop::StdioLoop(int input, int output, MCPBridge& bridge, MCPExitGate& gate,
                     std::function<void(std::string)> note)
    : input_(input), output_(output), bridge_(bridge), gate_(gate), note_(std::move(note)) {}

bool StdioLoop::writeLine(std::string_view line) {
  // The line and its feed in one writev: one system call, and no copy of a reply that may be the
  // whole ~30 KB catalogue just to add one byte.
  char feed = '\n';
  iovec parts[2] = {{const_cast<char*>(line.data()), line.size()}, {&feed, 1}};
  ssize_t n;
  do n = ::writev(output_, parts, 2);
  while (n < 0 && errno == EINTR);
  if (n <= 0) return false;
  const auto taken = static_cast<std::size_t>(n);
  if (taken > line.size()) return true;
  // The pipe took only part of it; the rest goes out plainly.
  return base::writeAll(output_, line.substr(taken)) && base::writeAll(output_, "\n");
}

bool StdioLoop::take(std::string_view raw) {
  if (!raw.empty() && raw.back() == '\r') raw.remove_suffix(1);  // a CR LF ending is one ending
  if (raw.empty()) return true;
  const auto repaired = repairedUTF8Within(raw, kMaxLineBytes);
  if (!repaired) {
    if (note_) note_(unparseableNote(raw.size()));
    return true;
  }
  const std::string& line = *repaired;
  auto message = parseFrame(line);
  if (!message) {
    if (note_) note_(unparseableNote(line.size()));
    std::this_thread::yield();
    return true;
  }
  gate_.beginRequest();
  bool outputAlive = true;
  if (const auto reply = bridge_.replyLine(*message)) outputAlive = writeLine(*reply);
  const bool endNow = gate_.endRequest();
  return outputAlive && !endNow;
}

void StdioLoop::run() {
  base::LineBuffer lines(kMaxLineBytes);
  // The bytes so far of an over-long line whose rest is being passed over, unread.
  std::optional<std::size_t> passing;
  // Left uninitialised: read() fills what it returns, and a zeroed buffer would cost every start
  // sixteen page faults and 64 KiB of memory for messages that are mostly a few hundred bytes.
  constexpr std::size_t kChunkBytes = std::size_t{1} << 16;
  const auto chunk = std::make_unique_for_overwrite<char[]>(kChunkBytes);
  for (;;) {
    const ssize_t n = ::read(input_, chunk.get(), kChunkBytes);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      // End of input: a last line without its line feed is still a line. Then stop at once.
      if (passing && note_) note_(unparseableNote(*passing));
      if (!passing && lines.buffered() > 0) take(lines.pending());
      return;
    }
    std::string_view data(chunk.get(), static_cast<std::size_t>(n));
    if (passing) {
      const auto* feed = static_cast<const char*>(std::memchr(data.data(), '\n', data.size()));
      if (feed == nullptr) {
        *passing += data.size();
        continue;
      }
      const auto upto = static_cast<std::size_t>(feed - data.data());
      if (note_) note_(unparseableNote(*passing + upto));
      passing.reset();
      data.remove_prefix(upto + 1);
    }
    lines.append(data);
    for (;;) {
      while (const auto line = lines.next())
        if (!take(*line)) return;
      if (!lines.overlong()) break;
      // An over-long line is dropped alone, never held whole: its bytes are counted as they pass,
      // and the lines after it are read on.
      const auto dropped = lines.dropOverlong();
      if (!dropped.ended) {
        passing = dropped.bytes;
        break;
      }
      if (note_) note_(unparseableNote(dropped.bytes));
    }
  }
}

}  // namespace quillon::bridge
