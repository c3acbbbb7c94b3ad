// The door on Linux: a Unix stream socket in the door's namespace folder, one line of JSON per
// message (DoorFrame), replies paired with requests by "id" (docs/door.md).
//
// A connection connects on its first send, from the sender's thread, then starts one I/O thread
// that reads replies and writes whatever the socket did not take at once. Senders never block: a
// line goes straight to the socket when it has room and waits in the outbox otherwise. The thread
// is detached and holds the connection's state alive, so a process that ends with _exit is never
// held up by it, and one that drops the connection mid-read frees nothing the thread still uses.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/LineBuffer.hpp"
#include "QuillonBase/SystemError.hpp"
#include "QuillonKit/DoorConnection.hpp"
#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/DoorNamespace.hpp"

namespace quillon::kit {

namespace {

using base::systemError;

// How long a connection waits for a gateway whose socket is there but refuses: long enough for a
// restart, short beside the redial budget.
constexpr auto kRestartWait = std::chrono::seconds(1);

// Handlers owed a word when a connection ends, called once the lock is released.
struct Farewell {
  std::vector<DoorConnection::ReplyHandler> replies;
  DoorConnection::EventHandler onEvent;
  std::string reason;

  void deliver() {
    for (auto& reply : replies) reply(TransportError{reason});
    if (onEvent) onEvent(TransportError{reason});
  }
};

// The state a connection shares with its I/O thread.
class Channel : public std::enable_shared_from_this<Channel> {
 public:
  Channel(std::string folder, std::string serviceName)
      : folder_(std::move(folder)), serviceName_(std::move(serviceName)), name_(folder_ + "/" + serviceName_) {}

  void resume(DoorConnection::EventHandler onEvent) {
    std::lock_guard guard(lock_);
    onEvent_ = std::move(onEvent);
  }

  void send(DoorMessage message, DoorConnection::ReplyHandler onReply) {
    std::unique_lock guard(lock_);
    if (state_ == State::fresh) {
      std::string reason;
      if (!connectLocked(reason)) {
        Farewell farewell = closeLocked(reason);
        guard.unlock();
        farewell.deliver();
        if (onReply) onReply(TransportError{reason});
        return;
      }
    }
    if (state_ == State::closed) {
      const std::string reason = closedReason_;
      guard.unlock();
      if (onReply) onReply(TransportError{reason});
      return;
    }
    DoorLine line{.id = std::nullopt, .message = std::move(message)};
    if (onReply) line.id = nextID_++;
    auto bytes = DoorFrame::encode(line);
    if (!bytes) {
      guard.unlock();
      if (onReply) onReply(TransportError{name_ + ": a message whose payload is not one line of JSON"});
      return;
    }
    if (onReply) outstanding_.emplace(*line.id, std::move(onReply));
    const bool idle = outbox_.empty();
    outbox_ += *bytes;
    if (!idle) return;  // the I/O thread is already waiting for room
    std::string reason;
    if (!flushLocked(reason)) {
      Farewell farewell = closeLocked(std::move(reason));
      guard.unlock();
      farewell.deliver();
      return;
    }
    if (!outbox_.empty()) {
      const std::uint64_t one = 1;
      [[maybe_unused]] const ssize_t n = ::write(wake_.get(), &one, sizeof one);
    }
  }

  void cancel() {
    std::unique_lock guard(lock_);
    Farewell farewell = closeLocked(name_ + ": connection cancelled");
    guard.unlock();
    farewell.deliver();
  }

 private:
  enum class State { fresh, open, closed };

  // Connects, checks who listens, and starts the I/O thread.
  bool connectLocked(std::string& reason) {
    if (auto problem = DoorNamespace::check(folder_)) {
      reason = "not dialling " + name_ + ": " + *problem;
      return false;
    }
    const auto path = DoorNamespace::servicePath(folder_, serviceName_);
    if (!path) {
      reason = "not dialling " + name_ + ": not a usable socket name";
      return false;
    }
    socket_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket_.get() < 0) {
      reason = systemError("socket for " + name_);
      return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path->c_str(), path->size() + 1);
    // A Unix socket connects at once or not at all; a gateway too busy to accept (a full backlog)
    // fails here rather than holding the sender. A socket file nobody listens on is a gateway that
    // died: one being restarted (systemd does it within a fraction of a second) is worth a short
    // wait, as launchd holds a message for a service it relaunches, so that the request retried
    // after the crash reaches it. The new gateway replaces the file, so it may be missing for a
    // moment too.
    const auto giveUp = std::chrono::steady_clock::now() + kRestartWait;
    bool refused = false;
    while (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      const int error = errno;
      refused = refused || error == ECONNREFUSED;
      if (error == EINTR) continue;
      if (!refused || (error != ECONNREFUSED && error != ENOENT) || std::chrono::steady_clock::now() >= giveUp) {
        reason = systemError("connect " + name_, error);
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    // Only a gateway of our own user may speak to the agent through us.
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
      reason = systemError("peer credentials of " + name_);
      return false;
    }
    if (peer.uid != ::geteuid()) {
      reason = name_ + ": the listener runs as uid " + std::to_string(peer.uid) + ", not " + std::to_string(::geteuid());
      return false;
    }
    wake_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (wake_.get() < 0) {
      reason = systemError("eventfd for " + name_);
      return false;
    }
    try {
      std::thread([self = shared_from_this()] { self->run(); }).detach();
    } catch (const std::system_error& error) {
      reason = name_ + ": no thread to read replies: " + error.what();
      return false;
    }
    state_ = State::open;
    return true;
  }

  // Ends the connection; the first call collects everyone owed the error.
  Farewell closeLocked(std::string reason) {
    Farewell farewell;
    if (state_ == State::closed) return farewell;
    state_ = State::closed;
    closedReason_ = reason;
    if (socket_.get() >= 0) ::shutdown(socket_.get(), SHUT_RDWR);  // wakes the I/O thread, which then ends
    for (auto& [id, handler] : outstanding_) farewell.replies.push_back(std::move(handler));
    outstanding_.clear();
    outbox_.clear();
    farewell.onEvent = onEvent_;
    farewell.reason = std::move(reason);
    return farewell;
  }

  void close(std::string reason) {
    std::unique_lock guard(lock_);
    Farewell farewell = closeLocked(std::move(reason));
    guard.unlock();
    farewell.deliver();
  }

  // Writes what the socket takes now. False, with the reason, when the write failed.
  bool flushLocked(std::string& reason) {
    std::size_t written = 0;
    while (written < outbox_.size()) {
      const ssize_t n = ::send(socket_.get(), outbox_.data() + written, outbox_.size() - written, MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n > 0) {
        written += static_cast<std::size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        break;
      } else {
        reason = systemError("write to " + name_, n < 0 ? errno : EPIPE);
        return false;
      }
    }
    outbox_.erase(0, written);
    return true;
  }

  // Hands one complete line to whoever awaits it. False when the line breaks the connection.
  bool take(std::string_view text) {
    auto line = DoorFrame::decode(text);
    if (!line) {
      close(name_ + ": the gateway sent a line that is not a JSON object");
      return false;
    }
    if (line->id) {
      DoorConnection::ReplyHandler handler;
      {
        std::lock_guard guard(lock_);
        if (const auto found = outstanding_.find(*line->id); found != outstanding_.end()) {
          handler = std::move(found->second);
          outstanding_.erase(found);
        }
      }
      // A reply nobody waits for (an id we never used) is dropped.
      if (handler) handler(std::move(line->message));
      return true;
    }
    DoorConnection::EventHandler onEvent;
    {
      std::lock_guard guard(lock_);
      onEvent = onEvent_;
    }
    if (onEvent) onEvent(std::move(line->message));
    return true;
  }

  void run() {
    base::LineBuffer pending(DoorFrame::kMaxLineBytes);
    std::vector<char> chunk(std::size_t{1} << 16);
    for (;;) {
      pollfd watched[2] = {{socket_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
      {
        std::lock_guard guard(lock_);
        if (state_ == State::closed) return;
        if (!outbox_.empty()) watched[0].events |= POLLOUT;
      }
      if (::poll(watched, 2, -1) < 0) {
        if (errno == EINTR) continue;
        close(systemError("poll " + name_));
        return;
      }
      if (watched[1].revents & POLLIN) {
        std::uint64_t count;
        [[maybe_unused]] const ssize_t n = ::read(wake_.get(), &count, sizeof count);
      }
      if (watched[0].revents & POLLOUT) {
        std::unique_lock guard(lock_);
        std::string reason;
        if (state_ == State::open && !flushLocked(reason)) {
          Farewell farewell = closeLocked(std::move(reason));
          guard.unlock();
          farewell.deliver();
          return;
        }
      }
      if ((watched[0].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      for (;;) {
        const ssize_t n = ::recv(socket_.get(), chunk.data(), chunk.size(), 0);
        if (n == 0) {
          close(name_ + ": the gateway closed the connection");
          return;
        }
        if (n < 0) {
          if (errno == EINTR) continue;
          if (errno == EAGAIN || errno == EWOULDBLOCK) break;
          close(systemError("read from " + name_));
          return;
        }
        pending.append(std::string_view(chunk.data(), static_cast<std::size_t>(n)));
        while (const auto line = pending.next())
          if (!take(*line)) return;
        if (pending.overlong()) {
          close(name_ + ": the gateway sent a line over 64 MiB");
          return;
        }
      }
      pending.shrink();
    }
  }

  const std::string folder_;
  const std::string serviceName_;
  const std::string name_;  // the socket's path, for messages
  // Set once while connecting, before the I/O thread starts.
  base::Fd socket_;
  base::Fd wake_;  // an eventfd: more output waits in the outbox

  std::mutex lock_;
  State state_ = State::fresh;                                        // guarded by lock_
  std::string closedReason_;                                          // guarded by lock_
  std::uint64_t nextID_ = 1;                                          // guarded by lock_
  std::map<std::uint64_t, DoorConnection::ReplyHandler> outstanding_;  // guarded by lock_
  DoorConnection::EventHandler onEvent_;                              // guarded by lock_
  std::string outbox_;                                                // guarded by lock_
};

class SocketConnection final : public DoorConnection {
 public:
  SocketConnection(std::string folder, std::string serviceName)
      : channel_(std::make_shared<Channel>(std::move(folder), std::move(serviceName))) {}
  // Dropping the connection ends it; the I/O thread lets go of the channel on its own.
  ~SocketConnection() override { channel_->cancel(); }

  void resume(EventHandler onEvent) override { channel_->resume(std::move(onEvent)); }
  void send(DoorMessage message) override { channel_->send(std::move(message), nullptr); }
  void sendWithReply(DoorMessage message, ReplyHandler onReply) override {
    channel_->send(std::move(message), std::move(onReply));
  }
  void cancel() override { channel_->cancel(); }

 private:
  std::shared_ptr<Channel> channel_;
};

}  // namespace

std::shared_ptr<DoorConnection> SystemDoor::makeConnection(const std::string& serviceName) {
  return std::make_shared<SocketConnection>(DoorNamespace::folder(), serviceName);
}

bool SystemDoor::serviceRegistered(const std::string& serviceName) {
  const std::string folder = DoorNamespace::folder();
  if (DoorNamespace::check(folder)) return false;
  const auto path = DoorNamespace::servicePath(folder, serviceName);
  if (!path) return false;
  const base::Fd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (probe.get() < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path->c_str(), path->size() + 1);
  // Something listens there: a stale socket file left by a gateway that died refuses the connect.
  return ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace quillon::kit
