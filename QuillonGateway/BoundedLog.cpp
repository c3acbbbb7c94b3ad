#include "QuillonGateway/BoundedLog.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace quillon::gateway {

namespace {

std::string timestamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  char text[40];
  const auto length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(millis));
  return text;
}

}  // namespace

BoundedLog::BoundedLog(std::string path, std::size_t maxBytes, Sink sink)
    : path_(std::move(path)), maxBytes_(maxBytes), sink_(sink) {
  if (sink_ != Sink::journal) openFile();
}

std::string BoundedLog::where() const {
  return sink_ == Sink::journal ? "the journal (journalctl --user -u quillon-gateway)" : path_;
}

void BoundedLog::openFile() {
  fd_.reset(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  struct stat info {};
  bytes_ = fd_.get() >= 0 && ::fstat(fd_.get(), &info) == 0 ? static_cast<std::size_t>(info.st_size) : 0;
}

void BoundedLog::write(std::string_view line) noexcept try {
  std::string entry = sink_ == Sink::journal ? std::string() : timestamp() + " ";
  entry.reserve(entry.size() + line.size() + 1);
  for (char c : line) entry += (c == '\n' || c == '\r') ? ' ' : c;
  if (entry.size() + 1 > maxBytes_) {
    entry.resize(maxBytes_ > 5 ? maxBytes_ - 5 : 0);
    entry += "…";
  }
  entry += '\n';
  std::lock_guard guard(lock_);
  if (sink_ == Sink::journal) {
    // The journal keeps what it is given; a journal that went away has nothing to keep it in.
    if (::write(STDERR_FILENO, entry.data(), entry.size()) < 0) return;
    return;
  }
  if (bytes_ + entry.size() > maxBytes_) {
    fd_.reset();
    ::rename(path_.c_str(), (path_ + ".1").c_str());
    openFile();
  }
  if (fd_.get() >= 0 && ::write(fd_.get(), entry.data(), entry.size()) > 0) bytes_ += entry.size();
  // Someone asked to watch; a terminal that went away loses nothing the file does not keep.
  if (sink_ == Sink::fileAndWatch && ::write(STDERR_FILENO, entry.data(), entry.size()) < 0) return;
} catch (const std::exception&) {
  // Out of memory for the line: the event goes unlogged rather than ending the gateway.
}

}  // namespace quillon::gateway
