// Fd: a file descriptor owned, closed when its owner goes; and the whole writes every writer of a
// pipe, file or socket needs.
#pragma once

#include <string_view>
#include <utility>

namespace quillon::base {

// Holds one descriptor (or none, -1) and closes it on destruction or reset. Move-only.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;

  int get() const { return fd_; }
  // Lets go of the descriptor without closing it: the caller owns it now.
  int release() { return std::exchange(fd_, -1); }
  // Closes the descriptor held, if any, and holds `fd` instead. A caller that must know whether
  // the close went through (a file's last write can fail there) closes release() itself.
  void reset(int fd = -1);

 private:
  int fd_;
};

// Writes all of `bytes`, again after an interrupted or short write. False when the descriptor
// takes no more; errno then says why, unless it took nothing without an error.
bool writeAll(int fd, std::string_view bytes);
// writeAll for a socket whose peer may have gone: send(2) with MSG_NOSIGNAL, so the write fails
// rather than raising SIGPIPE.
bool sendAll(int fd, std::string_view bytes);

}  // namespace quillon::base
