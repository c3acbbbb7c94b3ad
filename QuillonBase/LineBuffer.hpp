// LineBuffer: splits the bytes read from a pipe or socket into their "\n"-terminated lines, with a
// bound on the length of one line (the door's DoorFrame::kMaxLineBytes on both of its ends, the
// gateway's and the bridge's standard input their own).
//
// Append what the read gave, then call next() until it has nothing more before appending again.
// Each byte is looked at once however the line arrives, so a long line trickling in a byte at a
// time costs no more than one arriving whole. Once a line, complete or still arriving, passes the
// limit, overlong() turns true and stays so until the caller drops that line: the door ends the
// connection, since nothing after that line can be framed reliably; a reader that goes on past it
// calls dropOverlong(). Drained this way, the buffer holds at most the limit plus one received
// chunk. Not thread-safe: one reader owns it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::base {

class LineBuffer {
 public:
  explicit LineBuffer(std::size_t maxLineBytes) : maxLineBytes_(maxLineBytes) {}

  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;

  // Bytes as they arrive, in any pieces. Ignored once overlong().
  void append(std::string_view received);

  // The next complete line without its "\n"; valid until the next append(), shrink() or
  // dropOverlong(). Nothing when no complete line is buffered, or once overlong().
  std::optional<std::string_view> next();

  bool overlong() const { return overlong_; }

  // Bytes received and not yet handed out by next().
  std::size_t buffered() const { return bytes_.size() - start_; }
  // Those bytes. Once overlong(), they start with the line that passed the limit: enough to read
  // which request it was, and whatever followed it in the same chunk.
  std::string_view pending() const { return std::string_view(bytes_).substr(start_); }

  // The line that passed the limit, as far as it was buffered when dropped.
  struct Dropped {
    std::size_t bytes = 0;  // its length when `ended`, else the part of it received so far
    bool ended = false;     // its "\n" was buffered; else the rest of it is still to come
  };
  // Once overlong(): forgets the line that passed the limit and frames the bytes after its "\n"
  // from the start again. When the line had not ended, the caller passes over its input up to the
  // next "\n" before appending again.
  Dropped dropOverlong();

  // Gives back the room a large line took, so an idle connection does not keep megabytes.
  void shrink();

 private:
  // Drops the lines already handed out.
  void compact();

  const std::size_t maxLineBytes_;
  std::string bytes_;
  std::size_t start_ = 0;    // bytes_[0, start_) was handed out by next()
  std::size_t scanned_ = 0;  // bytes_[start_, scanned_) holds no "\n"
  bool overlong_ = false;
};

}  // namespace quillon::base
