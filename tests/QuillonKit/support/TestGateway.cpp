#include "TestGateway.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonWire/WireCodec.hpp"

namespace quillon::test {

struct TestGateway::Peer {
  int fd = -1;
  int number = 0;
  std::mutex writeLock;
  bool subscriber = false;  // guarded by the gateway's lock_
  std::thread reader;
};

Reply answer(const wire::GatewayResponse& response, std::optional<std::uint64_t> wireVersion) {
  Reply reply;
  if (auto encoded = wire::encode(response)) reply.payload = encoded.value();
  reply.wire = wireVersion;
  return reply;
}

TestGateway::TestGateway(std::string folder, std::string serviceName)
    : folder_(std::move(folder)), path_(folder_ + "/" + serviceName) {
  script_ = [](const Received& message) -> Action {
    if (message.isKnock()) return Reply{};
    return answer(wire::GatewayResponse{wire::answer::Ok{}});
  };
}

TestGateway::~TestGateway() { stop(); }

bool TestGateway::start() {
  const auto fail = [this](std::string reason) {
    std::lock_guard guard(lock_);
    lastError_ = std::move(reason);
    return false;
  };
  if (auto problem = kit::DoorNamespace::create(folder_)) return fail(*problem);
  ::unlink(path_.c_str());
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) return fail(std::string("socket: ") + std::strerror(errno));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
  if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 16) != 0) {
    const int error = errno;
    ::close(listener);
    return fail("bind " + path_ + ": " + std::strerror(error));
  }
  {
    std::lock_guard guard(lock_);
    listener_ = listener;
  }
  acceptor_ = std::thread([this, listener] { acceptLoop(listener); });
  return true;
}

void TestGateway::stop(bool removeSocket) {
  int listener = -1;
  std::vector<std::shared_ptr<Peer>> peers;
  {
    std::lock_guard guard(lock_);
    stopping_ = true;
    listener = listener_;
    listener_ = -1;
    held_.clear();
  }
  changed_.notify_all();
  if (acceptor_.joinable()) acceptor_.join();
  if (listener >= 0) ::close(listener);
  {
    std::lock_guard guard(lock_);
    peers = peers_;
  }
  for (auto& peer : peers) ::shutdown(peer->fd, SHUT_RDWR);
  for (auto& peer : peers)
    if (peer->reader.joinable()) peer->reader.join();
  std::vector<std::thread> delayed;
  {
    std::lock_guard guard(lock_);
    delayed = std::move(delayed_);
    delayed_.clear();
  }
  for (auto& thread : delayed) thread.join();
  for (auto& peer : peers) ::close(peer->fd);
  {
    std::lock_guard guard(lock_);
    peers_.clear();
    stopping_ = false;
  }
  if (removeSocket) ::unlink(path_.c_str());
}

void TestGateway::setScript(Script script) {
  std::lock_guard guard(lock_);
  script_ = std::move(script);
}

void TestGateway::refuseEveryConnection(bool refuse) {
  std::lock_guard guard(lock_);
  refusing_ = refuse;
}

void TestGateway::dropConnections() {
  std::lock_guard guard(lock_);
  for (auto& peer : peers_) ::shutdown(peer->fd, SHUT_RDWR);
}

void TestGateway::release(const Action& action) {
  std::vector<Held> held;
  {
    std::lock_guard guard(lock_);
    held.swap(held_);
  }
  for (auto& one : held)
    if (auto peer = one.peer.lock()) act(peer, one.message, action);
}

void TestGateway::push(const wire::GatewayEvent& event) {
  auto encoded = wire::encode(event);
  if (!encoded) return;
  kit::DoorLine line;
  line.message.event = encoded.value();
  const auto bytes = kit::DoorFrame::encode(line);
  std::vector<std::shared_ptr<Peer>> subscribers;
  {
    std::lock_guard guard(lock_);
    for (auto& peer : peers_)
      if (peer->subscriber) subscribers.push_back(peer);
  }
  for (auto& peer : subscribers) write(*peer, *bytes);
}

std::vector<Received> TestGateway::received() const {
  std::lock_guard guard(lock_);
  return received_;
}

bool TestGateway::awaitReceived(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock guard(lock_);
  return changed_.wait_for(guard, timeout, [&] { return received_.size() >= count; });
}

int TestGateway::connectionsAccepted() const {
  std::lock_guard guard(lock_);
  return accepted_;
}

std::string TestGateway::lastError() const {
  std::lock_guard guard(lock_);
  return lastError_;
}

void TestGateway::acceptLoop(int listener) {
  for (;;) {
    {
      std::lock_guard guard(lock_);
      if (stopping_) return;
    }
    pollfd waiting{listener, POLLIN, 0};
    if (::poll(&waiting, 1, 20) <= 0) continue;
    const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    ucred peerCredentials{};
    socklen_t size = sizeof peerCredentials;
    std::lock_guard guard(lock_);
    ++accepted_;
    // A gateway speaks only to its own user; a refusing one hangs up on everybody.
    const bool stranger = ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peerCredentials, &size) != 0 ||
                          peerCredentials.uid != ::geteuid();
    if (refusing_ || stranger) {
      ::close(fd);
      continue;
    }
    auto peer = std::make_shared<Peer>();
    peer->fd = fd;
    peer->number = accepted_;
    peers_.push_back(peer);
    peer->reader = std::thread([this, peer] { serve(peer); });
  }
}

void TestGateway::serve(std::shared_ptr<Peer> peer) {
  std::string pending;
  char chunk[65536];
  for (;;) {
    const ssize_t n = ::recv(peer->fd, chunk, sizeof chunk, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    pending.append(chunk, static_cast<std::size_t>(n));
    std::size_t start = 0;
    for (std::size_t feed; (feed = pending.find('\n', start)) != std::string::npos; start = feed + 1) {
      auto line = kit::DoorFrame::decode(std::string_view(pending).substr(start, feed - start));
      if (!line) continue;
      Received message{.connection = peer->number, .id = line->id, .message = line->message, .request = std::nullopt};
      if (message.message.payload) {
        if (auto request = wire::decodeRequest(*message.message.payload)) message.request = request.value();
      }
      const bool answerable = message.id && !message.message.subscribe.value_or(false);
      Script script;
      {
        std::lock_guard guard(lock_);
        script = script_;
      }
      const Action action = answerable ? script(message) : Action{Silence{}};
      // Recorded with its hold, so a test that saw the message can release it.
      {
        std::lock_guard guard(lock_);
        received_.push_back(message);
        if (message.message.subscribe.value_or(false)) peer->subscriber = true;
        if (std::holds_alternative<Hold>(action)) held_.push_back(Held{peer, message});
      }
      changed_.notify_all();
      if (!std::holds_alternative<Hold>(action)) act(peer, message, action);
    }
    pending.erase(0, start);
  }
}

void TestGateway::act(const std::shared_ptr<Peer>& peer, const Received& message, const Action& action) {
  if (const auto* reply = std::get_if<Reply>(&action)) {
    kit::DoorLine line;
    line.id = message.id;
    line.message.payload = reply->payload;
    line.message.wire = reply->wire;
    line.message.servedMs = reply->servedMs;
    const auto bytes = kit::DoorFrame::encode(line);
    if (!bytes) return;
    if (reply->delay.count() == 0) return write(*peer, *bytes);
    std::lock_guard guard(lock_);
    delayed_.emplace_back([this, weak = std::weak_ptr<Peer>(peer), bytes = *bytes, delay = reply->delay] {
      std::unique_lock waiting(lock_);
      if (changed_.wait_for(waiting, delay, [this] { return stopping_; })) return;
      waiting.unlock();
      if (auto alive = weak.lock()) write(*alive, bytes);
    });
  } else if (std::holds_alternative<CloseConnection>(action)) {
    ::shutdown(peer->fd, SHUT_RDWR);
  } else if (const auto* raw = std::get_if<RawLine>(&action)) {
    write(*peer, raw->bytes);
  }
}

void TestGateway::write(Peer& peer, const std::string& bytes) {
  std::lock_guard guard(peer.writeLock);
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::send(peer.fd, bytes.data() + written, bytes.size() - written, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // the client has gone
    written += static_cast<std::size_t>(n);
  }
}

}  // namespace quillon::test
