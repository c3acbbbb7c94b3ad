#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include "QuillonGateway/BoundedLog.hpp"
#include "QuillonGateway/GatewayDaemon.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/Runbooks.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/GatewayWire.hpp"
#include "QuillonWire/WireCodec.hpp"
#include "QuillonWire/WireContract.hpp"

namespace quillon::gateway {

namespace {

// The gateway speaks the same wire as the bridges built beside it.
constexpr auto kWireVersion = static_cast<std::uint64_t>(wire::WireContract::version);
// Every agent session starts its own bridge; past this many at once something is wrong, and a
// thread per connection must not grow without end.
constexpr std::size_t kMaxConnections = 512;
constexpr auto kStopGrace = std::chrono::seconds(5);

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

// Creates the folder and any missing parents (0700 under the daemon's umask), then makes sure it
// is a folder of ours that no one else can read: the store holds the user's memories.
std::optional<std::string> preparePrivateFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) return "cannot create " + folder + ": " + error.message();
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0) return systemError("stat " + folder);
  if (!S_ISDIR(info.st_mode)) return folder + " is not a folder";
  if (info.st_uid != ::geteuid())
    return folder + " belongs to uid " + std::to_string(info.st_uid) + ", not " + std::to_string(::geteuid());
  if ((info.st_mode & 077) != 0 && ::chmod(folder.c_str(), 0700) != 0) return systemError("chmod " + folder);
  return std::nullopt;
}

bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

sockaddr_un socketAddress(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);  // fits: DoorNamespace::servicePath checked
  return address;
}

// Whether something accepts connections on the socket at `path` right now.
bool somethingListens(const std::string& path) {
  Fd probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (probe.get() < 0) return false;
  const auto address = socketAddress(path);
  return ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

struct GatewayDaemon::State {
  DaemonSettings settings;
  std::string socketPath, storePath;
  std::unique_ptr<BoundedLog> log, diagnostics;
  Fd lock, listener, signals;
  ino_t socketInode = 0;

  std::mutex lock_;
  std::condition_variable ended;
  std::set<int> connections;  // guarded by lock_: the sockets being served, shut down on stop
  // Store connections whose client went away, kept warm for the next one: a prompt hook connects
  // for two requests, and a fresh connection would prepare its statements and fill its page
  // cache from cold every time. Guarded by lock_.
  std::vector<std::unique_ptr<MemoryStore>> idleStores;
  static constexpr std::size_t kMaxIdleStores = 8;

  std::unique_ptr<MemoryStore> takeStore();
  void giveBack(std::unique_ptr<MemoryStore> store);

  void serveConnection(int fd);
  std::optional<std::string> answer(std::string_view line, std::unique_ptr<MemoryStore>& store,
                                    std::unique_ptr<StoreGateway>& gateway);
};

namespace {

std::string replyLine(std::uint64_t id, std::optional<std::string> payload, std::optional<std::uint64_t> servedMs) {
  kit::DoorLine reply{.id = id,
                      .message = kit::DoorMessage{.payload = std::move(payload), .wire = kWireVersion,
                                                  .servedMs = servedMs, .subscribe = {}, .event = {}}};
  return kit::DoorFrame::encode(reply).value_or("");
}

}  // namespace

// One line in, at most one line out: a request gets its answer, a knock the wire version; a
// subscription and lines without an id get nothing (this gateway has no events to push).
std::optional<std::string> GatewayDaemon::State::answer(std::string_view line, std::unique_ptr<MemoryStore>& store,
                                                        std::unique_ptr<StoreGateway>& gateway) {
  const auto decoded = kit::DoorFrame::decode(line);
  if (!decoded) {
    log->write("dropped a line that is not a JSON object (" + std::to_string(line.size()) + " bytes)");
    return std::nullopt;
  }
  if (!decoded->id) return std::nullopt;
  const auto& message = decoded->message;
  if (!message.payload && message.wire) return replyLine(*decoded->id, std::nullopt, std::nullopt);  // a knock

  const auto started = std::chrono::steady_clock::now();
  wire::GatewayResponse response{wire::answer::Failure{std::string(wire::GatewayWire::malformedRequest)}};
  if (message.payload) {
    if (auto request = wire::decodeRequest(*message.payload)) {
      if (!store) {
        store = takeStore();
        if (store)
          gateway = std::make_unique<StoreGateway>(
              *store,
              [this](std::string_view source, std::string_view text) {
                diagnostics->write(std::string(source) + ": " + std::string(text));
              },
              StoreGateway::systemClock());
      }
      response = gateway ? gateway->serve(request.value())
                         : wire::GatewayResponse{wire::answer::Failure{"The store could not be opened; see " +
                                                                       log->path() + "."}};
    } else {
      log->write("malformed request: " + request.error().describe());
    }
  } else {
    log->write("malformed request: no payload");
  }
  const auto servedMs = static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count());
  auto encoded = wire::encode(response);
  if (!encoded) encoded = wire::encode(wire::GatewayResponse{wire::answer::Failure{"the answer could not be encoded"}});
  return replyLine(*decoded->id, encoded.value(), servedMs);
}

std::unique_ptr<MemoryStore> GatewayDaemon::State::takeStore() {
  {
    std::lock_guard guard(lock_);
    if (!idleStores.empty()) {
      auto store = std::move(idleStores.back());
      idleStores.pop_back();
      return store;
    }
  }
  try {
    return std::make_unique<MemoryStore>(storePath);
  } catch (const SqlError& error) {
    log->write(std::string("cannot open the store: ") + error.what());
    return nullptr;
  }
}

void GatewayDaemon::State::giveBack(std::unique_ptr<MemoryStore> store) {
  if (!store) return;
  std::lock_guard guard(lock_);
  if (idleStores.size() < kMaxIdleStores) idleStores.push_back(std::move(store));
}

void GatewayDaemon::State::serveConnection(int fd) {
  std::unique_ptr<MemoryStore> store;
  std::unique_ptr<StoreGateway> gateway;
  std::string buffer;
  std::size_t scanned = 0;
  char chunk[64 * 1024];
  bool open = true;
  while (open) {
    const auto received = ::recv(fd, chunk, sizeof chunk, 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) break;
    buffer.append(chunk, static_cast<std::size_t>(received));
    std::size_t start = 0;
    for (auto end = buffer.find('\n', scanned); end != std::string::npos; end = buffer.find('\n', start)) {
      if (auto reply = answer(std::string_view(buffer).substr(start, end - start), store, gateway))
        if (!sendAll(fd, *reply)) open = false;
      start = end + 1;
      if (!open) break;
    }
    buffer.erase(0, start);
    scanned = buffer.size();
    if (buffer.size() > kit::DoorFrame::kMaxLineBytes) {
      log->write("closed a connection whose line passed " + std::to_string(kit::DoorFrame::kMaxLineBytes) + " bytes");
      break;
    }
  }
  gateway.reset();
  giveBack(std::move(store));
  std::lock_guard guard(lock_);
  connections.erase(fd);
  ::close(fd);
  ended.notify_all();
}

GatewayDaemon::GatewayDaemon(std::shared_ptr<State> state) : state_(std::move(state)) {}
GatewayDaemon::~GatewayDaemon() = default;

const std::string& GatewayDaemon::socketPath() const { return state_->socketPath; }
const std::string& GatewayDaemon::storePath() const { return state_->storePath; }
const std::string& GatewayDaemon::logPath() const { return state_->log->path(); }

std::variant<std::unique_ptr<GatewayDaemon>, std::string> GatewayDaemon::start(const DaemonSettings& settings) {
  auto state = std::make_shared<State>();
  state->settings = settings;
  if (auto problem = preparePrivateFolder(settings.dataFolder)) return "data folder: " + *problem;
  state->log = std::make_unique<BoundedLog>(settings.logPath(), BoundedLog::kDefaultMaxBytes,
                                            settings.echoLog);
  state->diagnostics = std::make_unique<BoundedLog>(settings.diagnosticLogPath());
  {
    std::vector<std::string> problems;
    const auto placed = placeMissingRunbooks(settings.runbooksFolder(), problems);
    if (!placed.empty())
      state->log->write("runbooks: put " + std::to_string(placed.size()) + " missing into " + settings.runbooksFolder());
    for (const auto& problem : problems) state->log->write("runbooks: " + problem);
  }

  state->storePath = settings.storePath();
  try {
    // Creates and migrates before anyone can connect; a long migration says how far it got.
    MemoryStore store(state->storePath, [&](std::string_view line) { state->log->write(line); });
    ::chmod(state->storePath.c_str(), 0600);
  } catch (const SqlError& error) {
    return "store " + state->storePath + ": " + error.what();
  }

  if (auto problem = kit::DoorNamespace::create(settings.namespaceFolder)) return "door folder: " + *problem;
  const auto path = kit::DoorNamespace::servicePath(settings.namespaceFolder, settings.serviceName);
  if (!path) return "the service name '" + settings.serviceName + "' cannot be a socket in " + settings.namespaceFolder;
  state->socketPath = *path;

  // The lock decides between two gateways starting at once; the probe catches a gateway that
  // holds no lock (another build, a test's).
  const std::string lockPath = *path + ".lock";
  state->lock = Fd(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (state->lock.get() < 0) return systemError("open " + lockPath);
  const std::string busy = "a gateway already serves " + settings.serviceName + " at " + *path;
  if (::flock(state->lock.get(), LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? busy : systemError("flock " + lockPath);
  if (somethingListens(*path)) return busy;
  if (::unlink(path->c_str()) == 0) state->log->write("replaced the stale socket " + *path);

  state->listener = Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (state->listener.get() < 0) return systemError("socket");
  const auto address = socketAddress(*path);
  if (::bind(state->listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return systemError("bind " + *path);
  if (::listen(state->listener.get(), SOMAXCONN) != 0) return systemError("listen " + *path);
  struct stat info {};
  if (::stat(path->c_str(), &info) == 0) state->socketInode = info.st_ino;

  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  state->signals = Fd(::signalfd(-1, &stopSignals, SFD_CLOEXEC));
  if (state->signals.get() < 0) return systemError("signalfd");

  state->log->write("serving " + settings.serviceName + " at " + *path + " with the store " + state->storePath +
                    " (pid " + std::to_string(::getpid()) + ")");
  return std::unique_ptr<GatewayDaemon>(new GatewayDaemon(std::move(state)));
}

void GatewayDaemon::serve() {
  State& state = *state_;
  const uid_t self = ::geteuid();
  for (;;) {
    pollfd watched[2] = {{state.listener.get(), POLLIN, 0}, {state.signals.get(), POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) {
      if (errno == EINTR) continue;
      state.log->write(systemError("poll"));
      break;
    }
    if (watched[1].revents != 0) {
      signalfd_siginfo signal{};
      if (::read(state.signals.get(), &signal, sizeof signal) > 0)
        state.log->write(std::string("stopping on ") + ::strsignal(static_cast<int>(signal.ssi_signo)));
      break;
    }
    if (watched[0].revents == 0) continue;
    Fd peer(::accept4(state.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (peer.get() < 0) continue;
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(peer.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 || credentials.uid != self) {
      state.log->write("closed a connection from uid " + std::to_string(credentials.uid) + " (pid " +
                       std::to_string(credentials.pid) + "): only this user's programs are served");
      continue;
    }
    std::lock_guard guard(state.lock_);
    if (state.connections.size() >= kMaxConnections) {
      state.log->write("closed a connection: " + std::to_string(kMaxConnections) + " are already open");
      continue;
    }
    // The connection's thread owns the socket from here and closes it when the peer is done. It
    // shares the state, so a thread still busy after the stop's grace never outlives what it uses.
    const int fd = peer.release();
    state.connections.insert(fd);
    std::thread([shared = state_, fd] { shared->serveConnection(fd); }).detach();
  }

  // Stop: no new peers, the name is free again, and every connection ends after its current request.
  state.listener.reset();
  struct stat info {};
  if (::stat(state.socketPath.c_str(), &info) == 0 && info.st_ino == state.socketInode)
    ::unlink(state.socketPath.c_str());
  std::unique_lock guard(state.lock_);
  for (const int fd : state.connections) ::shutdown(fd, SHUT_RDWR);
  if (!state.ended.wait_for(guard, kStopGrace, [&] { return state.connections.empty(); }))
    state.log->write(std::to_string(state.connections.size()) + " connections still busy at exit");
  state.log->write("stopped");
}

}  // namespace quillon::gateway
