#include "QuillonBase/Fd.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace quillon::base {

void Fd::reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

namespace {

#ifdef MSG_NOSIGNAL
constexpr int kNoSignal = MSG_NOSIGNAL;
#else
// Older macOS SDKs lack the flag; the gateway, the one that sends this way, is Linux's.
constexpr int kNoSignal = 0;
#endif

// Calls `once` (one write(2) or send(2) of what is left) until everything went out.
template <typename Once>
bool whole(std::string_view bytes, Once once) {
  while (!bytes.empty()) {
    const ssize_t n = once(bytes);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace

bool writeAll(int fd, std::string_view bytes) {
  return whole(bytes, [fd](std::string_view rest) { return ::write(fd, rest.data(), rest.size()); });
}

bool sendAll(int fd, std::string_view bytes) {
  return whole(bytes, [fd](std::string_view rest) { return ::send(fd, rest.data(), rest.size(), kNoSignal); });
}

}  // namespace quillon::base
