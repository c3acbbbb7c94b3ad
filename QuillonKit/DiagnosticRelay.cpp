#include "QuillonKit/DiagnosticRelay.hpp"

#include <system_error>

#include "QuillonWire/GatewayRequest.hpp"

namespace quillon::kit {

DiagnosticRelay::DiagnosticRelay(std::string source, wire::Client& client, std::size_t queueLimit)
    : source_(std::move(source)), client_(client), queueLimit_(queueLimit) {}

DiagnosticRelay::~DiagnosticRelay() {
  std::thread sender;
  {
    std::lock_guard guard(lock_);
    stopping_ = true;
    queue_.clear();
    sender = std::move(sender_);
  }
  wake_.notify_all();
  if (sender.joinable()) sender.join();
}

void DiagnosticRelay::note(std::string line) {
  {
    std::lock_guard guard(lock_);
    if (stopping_ || queue_.size() >= queueLimit_) return;
    // Started on demand: a session without diagnostics never pays for the thread.
    if (!sender_.joinable()) {
      try {
        sender_ = std::thread([this] { run(); });
      } catch (const std::system_error&) {
        return;  // no thread, no relay: the note is dropped like any other that cannot be sent
      }
    }
    queue_.push_back(std::move(line));
  }
  wake_.notify_one();
}

void DiagnosticRelay::run() {
  for (;;) {
    std::string line;
    {
      std::unique_lock guard(lock_);
      wake_.wait(guard, [this] { return stopping_ || !queue_.empty(); });
      if (stopping_) return;
      line = std::move(queue_.front());
      queue_.pop_front();
    }
    const wire::GatewayRequest request{
        wire::request::Diagnostic{wire::DiagnosticRequest{wire::diagnostic::Log{.source = source_, .line = std::move(line)}}}};
    client_.send(request);
  }
}

}  // namespace quillon::kit
