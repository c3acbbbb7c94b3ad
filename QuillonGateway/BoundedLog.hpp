// BoundedLog: an append-only log file that never grows past its bound.
//
// Each line is written whole with one write(2) to a file opened O_APPEND, stamped with the UTC
// time. When a line would take the file past `maxBytes`, the file is renamed to "<path>.1"
// (replacing the older one) and a new file begins, so the log holds at most twice the bound on
// disk. Files are created 0600. Thread-safe. Failing to write a log line is not the gateway's
// business to report: the line is dropped.
//
// Under systemd the log is the journal instead: each line goes to standard error unstamped (the
// journal stamps it), and no file is kept.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "QuillonBase/Fd.hpp"

namespace quillon::gateway {

class BoundedLog {
 public:
  static constexpr std::size_t kDefaultMaxBytes = std::size_t{1} << 20;

  enum class Sink {
    file,          // the bounded file
    fileAndWatch,  // the file, each line also copied to standard error for someone watching
    journal,       // standard error only, where systemd's journal reads it
  };

  explicit BoundedLog(std::string path, std::size_t maxBytes = kDefaultMaxBytes, Sink sink = Sink::file);
  BoundedLog(const BoundedLog&) = delete;
  BoundedLog& operator=(const BoundedLog&) = delete;

  // Appends one line; line breaks inside it are written as blanks, so one call is one line.
  // Never throws: a line that cannot be made for want of memory is dropped.
  void write(std::string_view line) noexcept;
  // Where a person finds the log: the file, or the journal.
  std::string where() const;
  const std::string& path() const { return path_; }

 private:
  void openFile();

  const std::string path_;
  const std::size_t maxBytes_;
  const Sink sink_;
  std::mutex lock_;
  base::Fd fd_;            // guarded by lock_
  std::size_t bytes_ = 0;   // guarded by lock_
};

}  // namespace quillon::gateway
