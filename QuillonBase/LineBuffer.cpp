#include "QuillonBase/LineBuffer.hpp"

#include <cstring>

namespace quillon::base {

void LineBuffer::compact() {
  if (start_ == 0) return;
  // What remains follows the last line handed out, so it came with the latest chunk: moving it
  // costs no more than receiving it did.
  bytes_.erase(0, start_);
  scanned_ -= start_;
  start_ = 0;
}

void LineBuffer::append(std::string_view received) {
  if (overlong_ || received.empty()) return;
  compact();
  // A caller that appends without draining still cannot make the buffer grow past the limit
  // on a partial line it already knows is too long.
  if (scanned_ > maxLineBytes_) {
    overlong_ = true;
    return;
  }
  bytes_.append(received);
}

std::optional<std::string_view> LineBuffer::next() {
  if (overlong_) return std::nullopt;
  const auto* feed = static_cast<const char*>(std::memchr(bytes_.data() + scanned_, '\n', bytes_.size() - scanned_));
  if (feed == nullptr) {
    scanned_ = bytes_.size();
    if (scanned_ - start_ > maxLineBytes_) overlong_ = true;
    return std::nullopt;
  }
  const auto end = static_cast<std::size_t>(feed - bytes_.data());
  if (end - start_ > maxLineBytes_) {
    overlong_ = true;
    return std::nullopt;
  }
  const std::string_view line(bytes_.data() + start_, end - start_);
  start_ = end + 1;
  scanned_ = start_;
  return line;
}

LineBuffer::Dropped LineBuffer::dropOverlong() {
  if (!overlong_) return {};
  overlong_ = false;
  // bytes_[start_, scanned_) holds no "\n": the search goes on from where next() stopped.
  const auto* feed = static_cast<const char*>(std::memchr(bytes_.data() + scanned_, '\n', bytes_.size() - scanned_));
  if (feed == nullptr) {
    const Dropped dropped{.bytes = bytes_.size() - start_, .ended = false};
    bytes_.clear();
    start_ = scanned_ = 0;
    return dropped;
  }
  const auto end = static_cast<std::size_t>(feed - bytes_.data());
  const Dropped dropped{.bytes = end - start_, .ended = true};
  start_ = scanned_ = end + 1;
  return dropped;
}

void LineBuffer::shrink() {
  compact();
  // Keep a modest buffer: shrinking after every small line would only churn the allocator.
  constexpr std::size_t kKeptBytes = std::size_t{1} << 20;
  if (bytes_.capacity() > kKeptBytes && bytes_.capacity() > 2 * bytes_.size()) bytes_.shrink_to_fit();
}

}  // namespace quillon::base
