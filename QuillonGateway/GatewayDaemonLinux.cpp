#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/LineBuffer.hpp"
#include "QuillonBase/SystemError.hpp"
#include "QuillonGateway/BoundedLog.hpp"
#include "QuillonGateway/GatewayDaemon.hpp"
#include "QuillonGateway/GatewayStatus.hpp"
#include "QuillonGateway/LineCensus.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/Runbooks.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreGateway.hpp"
#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonWire/ClientVersion.hpp"
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
// The largest valid request (a 1 MiB text patched with old and new strings, JSON-escaped) is a
// few MiB; the door's own 64 MiB bound is for any gateway, this one reads no more than it needs.
constexpr std::size_t kMaxLineBytes = std::size_t{16} << 20;
// Parsing builds a node for every value: 100,000 of them is a few megabytes, far beyond any real
// request, while a 16 MiB line of empty arrays would take hundreds.
constexpr std::size_t kMaxLineValues = 100'000;
// After a line this large the connection's buffer and the allocator's free pages go back to the
// system, so one big request does not leave the gateway large for good.
constexpr std::size_t kTrimAfterBytes = std::size_t{1} << 20;
// How much of a line too long to read is searched for its id: the door writes "id" first.
constexpr std::size_t kIdProbeBytes = 4096;
constexpr const char* kLineTooLong =
    "The request is over 16 MiB, more than the Quillon gateway reads in one request; nothing was changed. A "
    "memory's text holds at most 1 MiB.";
// How long accepting rests after an error that accepting again would only repeat.
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
// A peer the gateway cannot serve gets this long to send its request, to be told why.
constexpr auto kTurnawayWait = std::chrono::seconds(2);
// Peers waiting to be told at once; past this many, a new one is closed unanswered.
constexpr std::size_t kMaxTurnedAway = 64;

using base::Fd;
using base::systemError;

std::string failureLine(std::uint64_t id, const std::string& text);

// Peers the gateway cannot serve, told so from one thread: each gets kTurnawayWait to send its
// request line, then the failure for the line's id and a close. A peer that says nothing in
// time, or whose id cannot be read, is closed unanswered. Thread-safe; the destructor stops the
// thread and closes every peer still waiting.
class Turnaway {
 public:
  Turnaway() = default;
  ~Turnaway() { stop(); }
  Turnaway(const Turnaway&) = delete;
  Turnaway& operator=(const Turnaway&) = delete;

  // Throws std::system_error when the thread cannot start. Room for every peer it may hold is
  // made now: it is needed when memory is what ran out.
  void start() {
    arriving_.reserve(kMaxTurnedAway);
    thread_ = std::thread([this] { run(); });
  }

  // Answers the peer's request with `text`. With kMaxTurnedAway peers already waiting, the peer
  // is closed at once: a clean close is better than a queue without end.
  void take(Fd peer, std::string text) {
    std::lock_guard guard(lock_);
    if (stopping_ || held_ >= kMaxTurnedAway) return;
    arriving_.push_back(Peer{std::move(peer), std::move(text), {}, std::chrono::steady_clock::now() + kTurnawayWait});
    ++held_;
    wake_.notify_one();
  }

  void stop() {
    {
      std::lock_guard guard(lock_);
      stopping_ = true;
      wake_.notify_one();
    }
    if (thread_.joinable()) thread_.join();
  }

 private:
  struct Peer {
    Fd fd;
    std::string text, received;
    std::chrono::steady_clock::time_point deadline;
  };

  void run() {
    std::vector<Peer> waiting;
    std::vector<pollfd> watched;
    waiting.reserve(kMaxTurnedAway);
    watched.reserve(kMaxTurnedAway);
    for (;;) {
      try {
        if (!turnAway(waiting, watched)) return;
      } catch (const std::exception&) {
        // Out of memory, most likely: every peer held is closed unanswered rather than left
        // waiting, and the next ones are told again.
        std::lock_guard guard(lock_);
        held_ = 0;
        waiting.clear();
        arriving_.clear();
      }
    }
  }

  // One round: takes the peers arriving, reads what they sent, answers those done. False once
  // stopping.
  bool turnAway(std::vector<Peer>& waiting, std::vector<pollfd>& watched) {
    {
      std::unique_lock guard(lock_);
      if (waiting.empty()) wake_.wait(guard, [&] { return stopping_ || !arriving_.empty(); });
      if (stopping_) return false;
      for (auto& peer : arriving_) waiting.push_back(std::move(peer));
      arriving_.clear();
    }
    watched.clear();
    for (const auto& peer : waiting) watched.push_back({peer.fd.get(), POLLIN, 0});
    ::poll(watched.data(), watched.size(), 50);
    const auto now = std::chrono::steady_clock::now();
    std::size_t closed = 0;
    for (std::size_t i = waiting.size(); i-- > 0;) {
      Peer& peer = waiting[i];
      bool done = now >= peer.deadline;
      if (watched[i].revents != 0) {
        char chunk[4096];
        const auto got = ::recv(peer.fd.get(), chunk, sizeof chunk, MSG_DONTWAIT);
        if (got > 0) peer.received.append(chunk, static_cast<std::size_t>(got));
        // The id comes first in every line a bridge sends; a long line's start is enough.
        done = done || got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR) ||
               peer.received.find('\n') != std::string::npos || peer.received.size() >= 64 * 1024;
      }
      if (!done) continue;
      const std::string_view line(peer.received.data(), std::min(peer.received.size(), peer.received.find('\n')));
      if (const auto id = LineCensus::of(line).id) {
        const std::string reply = failureLine(*id, peer.text);
        ::send(peer.fd.get(), reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      }
      waiting.erase(waiting.begin() + static_cast<std::ptrdiff_t>(i));
      ++closed;
    }
    if (closed > 0) {
      std::lock_guard guard(lock_);
      held_ -= closed;
    }
    return true;
  }

  std::mutex lock_;
  std::condition_variable wake_;
  std::vector<Peer> arriving_;  // guarded by lock_
  std::size_t held_ = 0;        // guarded by lock_: arriving and waiting
  bool stopping_ = false;       // guarded by lock_
  std::thread thread_;
};

// Each bridge costs a socket and, once it asks something, its store connection's two files (the
// store and its WAL): 512 bridges need about 1,540 descriptors, past the usual soft limit of 1024.
void raiseDescriptorLimit(BoundedLog& log) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
  const auto was = limit.rlim_cur;
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) == 0)
    log.write("raised the open-file limit from " + std::to_string(was) + " to " + std::to_string(limit.rlim_max));
  else
    log.write(systemError("could not raise the open-file limit from " + std::to_string(was)));
}

// Whether the file system holding `folder` has no room left. SQLite says "database or disk is
// full" only where it writes the store itself; the WAL index it maps on opening fails as a
// plain "disk I/O error", so the free space decides too.
bool diskIsFull(const std::string& folder, std::string_view error) {
  if (error.find("disk is full") != std::string_view::npos) return true;
  struct statvfs info {};
  constexpr std::uint64_t kRoomToOpen = std::uint64_t{1} << 20;
  return ::statvfs(folder.c_str(), &info) == 0 &&
         static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize < kRoomToOpen;
}

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
  // Held open so that, out of descriptors, the gateway can still accept a peer to close it cleanly
  // rather than leave it waiting in the backlog.
  Fd reserve;
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

  // Declared last: stopped before anything it logs to goes.
  Turnaway turnaway;

  // Serves the peer until it goes, then closes it; a connection that fails ends alone.
  void serveConnection(int fd);
  void serveLines(int fd, std::unique_ptr<MemoryStore>& store, std::unique_ptr<StoreGateway>& gateway);
  // Takes the peer on a thread of its own, or tells it why not. Runs on the accepting thread.
  void admit(const std::shared_ptr<State>& self, Fd peer);
  std::optional<std::string> answer(std::string_view line, std::unique_ptr<MemoryStore>& store,
                                    std::unique_ptr<StoreGateway>& gateway);
  // `answer`, for a line within the budget of values the gateway parses; else its refusal.
  std::optional<std::string> answerWithinBudget(std::string_view line, std::unique_ptr<MemoryStore>& store,
                                                std::unique_ptr<StoreGateway>& gateway);
};

namespace {

std::string replyLine(std::uint64_t id, std::optional<std::string> payload, std::optional<std::uint64_t> servedMs) {
  kit::DoorLine reply{.id = id,
                      .message = kit::DoorMessage{.payload = std::move(payload), .wire = kWireVersion,
                                                  .servedMs = servedMs, .subscribe = {}, .event = {}}};
  return kit::DoorFrame::encode(reply).value_or("");
}

// One request as --verbose logs it: which verb, the kind of answer, how long it took. Never what
// the request or the answer said: that is the user's.
std::string requestLine(const std::optional<std::string>& payload, const wire::GatewayResponse& response,
                        std::chrono::steady_clock::duration took) {
  std::string verb = "malformed";
  if (payload)
    if (const auto request = wire::decodeRequest(*payload))
      verb = std::visit(
          [](const auto& family) {
            return std::string(std::decay_t<decltype(family)>::wireName) + "." +
                   std::visit([](const auto& each) { return std::string(std::decay_t<decltype(each)>::wireName); },
                              family.request.value);
          },
          request.value().value);
  const std::string_view answer =
      std::visit([](const auto& each) { return std::decay_t<decltype(each)>::wireName; }, response.value);
  char milliseconds[32];
  std::snprintf(milliseconds, sizeof milliseconds, "%.1f",
                std::chrono::duration<double, std::milli>(took).count());
  return "request " + verb + ": " + std::string(answer) + " in " + milliseconds + " ms";
}

std::string failureLine(std::uint64_t id, const std::string& text) {
  return replyLine(id, wire::encode(wire::GatewayResponse{wire::answer::Failure{text}}).value(), 0);
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
      response = gateway ? gateway->serveOnce(request.value(), message.token.value_or(""))
                         : wire::GatewayResponse{wire::answer::Failure{"The store could not be opened; see " +
                                                                       log->where() + "."}};
    } else {
      log->write("malformed request: " + request.error().describe());
    }
  } else {
    log->write("malformed request: no payload");
  }
  const auto took = std::chrono::steady_clock::now() - started;
  const auto servedMs =
      static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
  if (settings.logRequests) log->write(requestLine(message.payload, response, took));
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

std::optional<std::string> GatewayDaemon::State::answerWithinBudget(std::string_view line,
                                                                    std::unique_ptr<MemoryStore>& store,
                                                                    std::unique_ptr<StoreGateway>& gateway) {
  // A line short of the budget in bytes cannot hold more values than that: no need to count.
  const auto census = line.size() > kMaxLineValues ? LineCensus::of(line) : LineCensus{};
  if (census.values <= kMaxLineValues) return answer(line, store, gateway);
  log->write("refused a line of " + std::to_string(line.size()) + " bytes holding more than " +
             std::to_string(kMaxLineValues) + " JSON values" + (census.id ? "" : ", without an id to answer"));
  if (!census.id) return std::nullopt;
  return failureLine(*census.id, "The request holds more than 100,000 JSON values, more than the Quillon gateway "
                                 "reads in one request; nothing was changed.");
}

void GatewayDaemon::State::serveConnection(int fd) {
  std::unique_ptr<MemoryStore> store;
  std::unique_ptr<StoreGateway> gateway;
  try {
    serveLines(fd, store, gateway);
  } catch (const std::exception& error) {
    // Out of memory under an address-space limit, most likely: this connection ends, the others
    // are served on. Its bridge dials again on its next call.
    try {
      log->write(std::string("closed a connection that could not go on (") + error.what() + ")");
    } catch (...) {
      // Not even the line could be made: the close says it to the bridge.
    }
  }
  gateway.reset();
  giveBack(std::move(store));
  std::lock_guard guard(lock_);
  connections.erase(fd);
  ::close(fd);
  ended.notify_all();
}

void GatewayDaemon::State::serveLines(int fd, std::unique_ptr<MemoryStore>& store,
                                      std::unique_ptr<StoreGateway>& gateway) {
  base::LineBuffer lines(kMaxLineBytes);
  bool skipping = false;  // passing over the rest of a line that was too long
  char chunk[64 * 1024];
  const auto idleMs = static_cast<int>(std::min<std::int64_t>(settings.idleClose.count(), INT_MAX));
  for (bool open = true; open;) {
    pollfd watched{fd, POLLIN, 0};
    const int ready = ::poll(&watched, 1, idleMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) {
      log->write("closed a connection silent for " + std::to_string(settings.idleClose.count() / 1000) + " s");
      break;
    }
    const auto received = ready < 0 ? -1 : ::recv(fd, chunk, sizeof chunk, 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) break;
    std::string_view input(chunk, static_cast<std::size_t>(received));
    if (skipping) {
      const auto feed = input.find('\n');
      if (feed == std::string_view::npos) continue;
      input.remove_prefix(feed + 1);
      skipping = false;
    }
    bool large = false;
    lines.append(input);
    // Serves every complete line; a line too long is refused alone, as a line over the value
    // budget is: its request is answered when its id can be read from its start, the rest of it is
    // passed over, and the lines after it are served. Closing instead would make the bridge redial
    // and send it again, to no end.
    while (open) {
      while (open) {
        const auto line = lines.next();
        if (!line) break;
        large = large || line->size() > kTrimAfterBytes;
        if (auto reply = answerWithinBudget(*line, store, gateway); reply && !base::sendAll(fd, *reply)) open = false;
      }
      if (!open || !lines.overlong()) break;
      const auto census = LineCensus::of(lines.pending().substr(0, kIdProbeBytes));
      log->write("refused a line longer than " + std::to_string(kMaxLineBytes) + " bytes" +
                 (census.id ? "" : ", without an id to answer"));
      if (census.id && !base::sendAll(fd, failureLine(*census.id, kLineTooLong))) open = false;
      skipping = !lines.dropOverlong().ended;
      large = true;
    }
    if (large) {
      lines.shrink();
      ::malloc_trim(0);
    }
  }
}

void GatewayDaemon::State::admit(const std::shared_ptr<State>& self, Fd peer) {
  std::string refusal;
  {
    std::lock_guard guard(lock_);
    if (connections.size() >= kMaxConnections) {
      log->write("answered a connection busy: " + std::to_string(kMaxConnections) + " are already open");
      refusal = "The Quillon gateway is busy: it already serves " + std::to_string(kMaxConnections) +
                " connections. Try again in a moment.";
    } else {
      const int fd = peer.get();
      try {
        connections.insert(fd);
        // The connection's thread owns the socket from here and closes it when the peer is done.
        // It shares the state, so a thread still busy after the stop's grace never outlives what
        // it uses.
        std::thread([self, fd] { self->serveConnection(fd); }).detach();
        peer.release();
        return;
      } catch (const std::exception& error) {
        // Out of threads or memory (a process or address-space limit): this peer is told, the
        // others are served on.
        connections.erase(fd);
        log->write(std::string("could not start a thread for a connection (") + error.what() + "); answered it busy");
        refusal = "The Quillon gateway could not take another connection just now (" + std::string(error.what()) +
                  "). Try again in a moment.";
      }
    }
  }
  try {
    turnaway.take(std::move(peer), std::move(refusal));
  } catch (const std::exception&) {
    // No memory even to queue the peer: it is closed unanswered.
  }
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
                                            settings.journal   ? BoundedLog::Sink::journal
                                            : settings.echoLog ? BoundedLog::Sink::fileAndWatch
                                                               : BoundedLog::Sink::file);
  raiseDescriptorLimit(*state->log);
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
    if (diskIsFull(settings.dataFolder, error.what()))
      return "store " + state->storePath + ": the disk holding " + settings.dataFolder +
             " is full; free some space there and start the gateway again (" + error.what() + ")";
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
  // Who holds the lock, for `quillon-gateway status`. The facts count only while the lock is held,
  // so the ones a gateway that died left behind are never taken for a running one.
  const std::string facts = GatewayFacts{.pid = ::getpid(), .version = wire::ClientVersion::current(),
                                         .started = static_cast<double>(std::time(nullptr))}.line();
  if (::ftruncate(state->lock.get(), 0) != 0 ||
      ::pwrite(state->lock.get(), facts.data(), facts.size(), 0) != static_cast<ssize_t>(facts.size()))
    state->log->write(systemError("write the gateway's facts into " + lockPath));

  // Ready to serve before the name leads here: a peer arrives as soon as it does.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  state->signals = Fd(::signalfd(-1, &stopSignals, SFD_CLOEXEC));
  if (state->signals.get() < 0) return systemError("signalfd");
  // Giving a store back must not need memory: a connection ending for want of it gives one back.
  state->idleStores.reserve(State::kMaxIdleStores);
  state->reserve = Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  try {
    state->turnaway.start();
  } catch (const std::system_error& error) {
    return std::string("cannot start a thread: ") + error.what();
  }

  // Bound under a passing name, then renamed over the service's name: the name always leads to
  // the dead gateway's socket (which refuses, and a bridge waits through that) or to this one,
  // never to nothing, which a bridge takes for no gateway at all. A folder too deep for the
  // passing name gets the plain way: remove, then bind.
  const std::string passing = settings.namespaceFolder + "/." + std::to_string(::getpid()) + ".socket";
  const bool renaming = passing.size() < sizeof(sockaddr_un::sun_path);
  const std::string& bound = renaming ? passing : *path;
  struct stat stale {};
  const bool replacing = ::lstat(path->c_str(), &stale) == 0;
  ::unlink(bound.c_str());
  // Non-blocking, so a peer that vanished between poll and accept never holds the loop.
  state->listener = Fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (state->listener.get() < 0) return systemError("socket");
  const auto address = socketAddress(bound);
  if (::bind(state->listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return systemError("bind " + bound);
  if (::listen(state->listener.get(), SOMAXCONN) != 0) return systemError("listen " + bound);
  if (renaming && ::rename(passing.c_str(), path->c_str()) != 0) {
    const std::string problem = systemError("rename " + passing + " to " + *path);
    ::unlink(passing.c_str());
    return problem;
  }
  if (replacing) state->log->write("replaced the stale socket " + *path);
  struct stat info {};
  if (::stat(path->c_str(), &info) == 0) state->socketInode = info.st_ino;

  state->log->write("serving " + settings.serviceName + " at " + *path + " with the store " + state->storePath +
                    " (pid " + std::to_string(::getpid()) + ")");
  return std::unique_ptr<GatewayDaemon>(new GatewayDaemon(std::move(state)));
}

void GatewayDaemon::serve() {
  State& state = *state_;
  const uid_t self = ::geteuid();
  // Accepting rests until then after an error that accepting again at once would only repeat.
  auto restingUntil = std::chrono::steady_clock::time_point{};
  std::size_t shed = 0;  // peers closed unanswered for want of descriptors since the last log line
  auto shedLogged = std::chrono::steady_clock::time_point{};
  bool stopping = false;  // set before the stop is logged, which may fail
  for (;;) {
    try {
      const auto now = std::chrono::steady_clock::now();
      const bool resting = now < restingUntil;
      pollfd watched[2] = {{state.signals.get(), POLLIN, 0}, {resting ? -1 : state.listener.get(), POLLIN, 0}};
      const auto rest = std::chrono::ceil<std::chrono::milliseconds>(restingUntil - now).count();
      if (::poll(watched, 2, resting ? static_cast<int>(rest) : -1) < 0) {
        if (errno == EINTR) continue;
        stopping = true;
        state.log->write(systemError("poll"));
        break;
      }
      if (watched[0].revents != 0) {
        signalfd_siginfo signal{};
        stopping = true;
        if (::read(state.signals.get(), &signal, sizeof signal) > 0)
          state.log->write(std::string("stopping on ") + ::strsignal(static_cast<int>(signal.ssi_signo)));
        break;
      }
      if (watched[1].revents == 0) continue;
      if (state.reserve.get() < 0) state.reserve = Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
      Fd peer(::accept4(state.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (peer.get() < 0) {
        const int error = errno;
        if (error == EAGAIN || error == EINTR || error == ECONNABORTED) continue;
        if ((error == EMFILE || error == ENFILE) && state.reserve.get() >= 0) {
          // The reserve makes room to take the peer off the backlog and close it: its bridge hears
          // the close at once instead of waiting on a gateway that never answers.
          state.reserve.reset();
          Fd(::accept4(state.listener.get(), nullptr, nullptr, SOCK_CLOEXEC)).reset();
          state.reserve = Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
          ++shed;
          if (std::chrono::steady_clock::now() - shedLogged >= std::chrono::seconds(1)) {
            state.log->write("out of file descriptors: closed " + std::to_string(shed) + " new connection" +
                             (shed == 1 ? "" : "s") + " unanswered");
            shed = 0;
            shedLogged = std::chrono::steady_clock::now();
          }
          continue;
        }
        state.log->write(systemError("accept") + "; accepting again in " + std::to_string(kAcceptPause.count()) + " ms");
        restingUntil = std::chrono::steady_clock::now() + kAcceptPause;
        continue;
      }
      ucred credentials{};
      socklen_t length = sizeof credentials;
      if (::getsockopt(peer.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 || credentials.uid != self) {
        state.log->write("closed a connection from uid " + std::to_string(credentials.uid) + " (pid " +
                         std::to_string(credentials.pid) + "): only this user's programs are served");
        continue;
      }
      try {
        state.admit(state_, std::move(peer));
      } catch (const std::exception& error) {
        state.log->write(std::string("closed a connection unanswered: ") + error.what());
      }
    } catch (const std::exception&) {
      // Out of memory even for a log line, most likely: the peer taken, if any, is closed
      // unanswered by its descriptor's end, and accepting goes on.
      if (stopping) break;
    }
  }

  // Stop: no new peers, the name is free again, and every connection ends after its current request.
  state.listener.reset();
  struct stat info {};
  if (::stat(state.socketPath.c_str(), &info) == 0 && info.st_ino == state.socketInode)
    ::unlink(state.socketPath.c_str());
  state.turnaway.stop();
  std::unique_lock guard(state.lock_);
  for (const int fd : state.connections) ::shutdown(fd, SHUT_RDWR);
  if (!state.ended.wait_for(guard, kStopGrace, [&] { return state.connections.empty(); }))
    state.log->write(std::to_string(state.connections.size()) + " connections still busy at exit");
  state.log->write("stopped");
}

}  // namespace quillon::gateway
