// DiagnosticRelay: carries one-line diagnostics of a suite program to the gateway's log, since
// nothing is ever written to the program's standard error.
//
// `note` queues the line and returns at once; one background thread, started by the first note,
// sends each as a `diagnostic` `log` request with this relay's source ("mcp" for the bridge) and
// ignores the answer. The queue is small: when the gateway is slow or gone, later notes are
// dropped rather than held, so a flood of bad input never grows memory or blocks the caller.
//
// Thread-safe. Borrows the client, which must outlive the relay. The destructor drops what is
// still queued and waits for the note being sent, if any; a process that ends with _exit never
// runs it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "QuillonWire/Client.hpp"

namespace quillon::kit {

class DiagnosticRelay {
 public:
  static constexpr std::size_t kQueueLimit = 32;

  DiagnosticRelay(std::string source, wire::Client& client, std::size_t queueLimit = kQueueLimit);
  ~DiagnosticRelay();
  DiagnosticRelay(const DiagnosticRelay&) = delete;
  DiagnosticRelay& operator=(const DiagnosticRelay&) = delete;

  void note(std::string line);

 private:
  void run();

  const std::string source_;
  wire::Client& client_;
  const std::size_t queueLimit_;

  std::mutex lock_;
  std::condition_variable wake_;
  std::deque<std::string> queue_;  // guarded by lock_
  bool stopping_ = false;          // guarded by lock_
  std::thread sender_;             // guarded by lock_; started by the first note
};

}  // namespace quillon::kit
