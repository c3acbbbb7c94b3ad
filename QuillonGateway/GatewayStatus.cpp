#include "QuillonGateway/GatewayStatus.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <sstream>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/SystemError.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreWording.hpp"
#include "QuillonKit/DoorFrame.hpp"
#include "QuillonKit/DoorNamespace.hpp"
#include "QuillonWire/WireContract.hpp"

namespace quillon::gateway {

namespace {

// A gateway answers a knock in well under a millisecond; one that takes this long is stuck.
constexpr auto kKnockWait = std::chrono::seconds(2);
// Types named on the counts line; the rest are summed, so a store of many types stays one line.
constexpr std::size_t kTypesShown = 8;

// Nothing when the gateway at `path` answers the door's knock; else why not.
std::optional<std::string> knock(const std::string& path) {
  const base::Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return std::string(std::strerror(errno));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return base::systemError("connect");
  const auto line = kit::DoorFrame::encode(kit::DoorLine{
      .id = 1, .message = {.wire = static_cast<std::uint64_t>(wire::WireContract::version)}});
  if (!line || ::send(socket.get(), line->data(), line->size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line->size()))
    return base::systemError("the knock could not be sent");
  std::string reply;
  const auto deadline = std::chrono::steady_clock::now() + kKnockWait;
  while (reply.find('\n') == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd watched{socket.get(), POLLIN, 0};
    if (left.count() <= 0 || ::poll(&watched, 1, static_cast<int>(left.count())) <= 0)
      return "no answer to the knock within " + std::to_string(kKnockWait.count()) + " s";
    char chunk[512];
    const auto got = ::recv(socket.get(), chunk, sizeof chunk, 0);
    if (got <= 0) return std::string("it closed the connection unanswered");
    reply.append(chunk, static_cast<std::size_t>(got));
  }
  const auto decoded = kit::DoorFrame::decode(std::string_view(reply).substr(0, reply.find('\n')));
  if (!decoded || decoded->id != 1u || !decoded->message.wire) return std::string("it answered the knock with something else");
  return std::nullopt;
}

std::uint64_t fileBytes(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

void countStore(GatewayStatus& status) {
  Database database(status.storePath, Database::Access::readOnly);
  // One snapshot, so the counts agree with each other while a gateway writes.
  database.exec("BEGIN");
  auto& schema = database.cached("PRAGMA user_version");
  schema.step();
  status.schema = static_cast<int>(schema.integer(0));
  schema.reset();
  auto& types = database.cached("SELECT type, COUNT(*) AS n FROM memories GROUP BY type ORDER BY n DESC, type");
  while (types.step()) {
    status.types.emplace_back(types.text(0), types.integer(1));
    status.memories += types.integer(1);
  }
  types.reset();
  auto& scopes = database.cached(
      "SELECT (SELECT COUNT(*) FROM (SELECT scope FROM memories UNION SELECT scope FROM folders)), "
      "(SELECT COUNT(*) FROM folders)");
  scopes.step();
  status.scopes = scopes.integer(0);
  status.folders = scopes.integer(1);
  scopes.reset();
  database.exec("COMMIT");
}

std::string shownPath(const std::string& path, const std::string& home) {
  if (home.size() > 1 && path.size() > home.size() && path.compare(0, home.size(), home) == 0 &&
      path[home.size()] == '/')
    return "~" + path.substr(home.size());
  return path;
}

// "12s", "5m", "2h 5m", "3d 4h": the way session lengths read elsewhere.
std::string uptime(double seconds) {
  const auto whole = static_cast<long long>(std::max(0.0, std::floor(seconds)));
  if (whole < 60) return std::to_string(whole) + "s";
  if (whole < 3600) return std::to_string(whole / 60) + "m";
  if (whole < 86400) return std::to_string(whole / 3600) + "h " + std::to_string(whole % 3600 / 60) + "m";
  return std::to_string(whole / 86400) + "d " + std::to_string(whole % 86400 / 3600) + "h";
}

}  // namespace

std::string GatewayFacts::line() const {
  std::ostringstream text;
  text << "pid=" << pid.value_or(0) << " version=" << version.value_or("0") << " started="
       << static_cast<long long>(started.value_or(0)) << "\n";
  return text.str();
}

GatewayFacts GatewayFacts::parse(const std::string& text) {
  GatewayFacts facts;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const auto equals = word.find('=');
    if (equals == std::string::npos) continue;
    const std::string key = word.substr(0, equals), value = word.substr(equals + 1);
    char* end = nullptr;
    if (key == "version" && !value.empty()) {
      facts.version = value;
    } else if (key == "pid" || key == "started") {
      const long long number = std::strtoll(value.c_str(), &end, 10);
      if (value.empty() || *end != '\0' || number <= 0) continue;
      if (key == "pid")
        facts.pid = static_cast<long>(number);
      else
        facts.started = static_cast<double>(number);
    }
  }
  return facts;
}

GatewayStatus GatewayStatus::look(const DaemonSettings& settings) {
  GatewayStatus status;
  status.serviceName = settings.serviceName;
  status.socketPath = settings.namespaceFolder + "/" + settings.serviceName;
  status.lockPath = status.socketPath + ".lock";
  status.storePath = settings.storePath();

  // The door is dialled only through a folder that passes its check: anyone else's socket there
  // could pose as the gateway.
  struct stat door {};
  if (auto problem = kit::DoorNamespace::check(settings.namespaceFolder)) {
    status.silence = *problem;
    if (::lstat(settings.namespaceFolder.c_str(), &door) == 0) status.doorProblem = *problem;
  } else {
    const base::Fd lock(::open(status.lockPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (lock.get() >= 0) {
      // Shared and let go at once: a gateway starting in this instant is the only one it could
      // hold up, and that start would say another gateway serves.
      status.locked = ::flock(lock.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
      if (!status.locked) ::flock(lock.get(), LOCK_UN);
      char text[256] = {};
      if (status.locked && ::pread(lock.get(), text, sizeof text - 1, 0) > 0) status.facts = GatewayFacts::parse(text);
    }
    status.silence = knock(status.socketPath);
  }

  struct stat info {};
  status.storeExists = ::stat(status.storePath.c_str(), &info) == 0;
  if (status.storeExists) {
    status.storeBytes = fileBytes(status.storePath) + fileBytes(status.storePath + "-wal");
    try {
      countStore(status);
    } catch (const SqlError& error) {
      status.storeProblem = error.what();
    }
  }
  return status;
}

int GatewayStatus::exitCode() const {
  if (serving()) return 0;
  return locked ? 1 : 3;
}

std::string GatewayStatus::report(const std::string& home, double now, const std::string& ownVersion) const {
  std::string text;
  if (serving() || locked) {
    text = serving() ? "quillon-gateway is running" : "quillon-gateway holds the door but does not answer";
    if (!locked) {
      text += " (it keeps no lock file here, so its pid and version are unknown)";
    } else if (facts.pid) {
      text += ": pid " + std::to_string(*facts.pid);
      if (facts.version)
        text += ", version " + *facts.version + (*facts.version != ownVersion ? " (this program is " + ownVersion + ")" : "");
      if (facts.started) text += ", up " + uptime(now - *facts.started);
    }
  } else {
    text = "quillon-gateway is not running";
  }
  text += "\n  service " + serviceName + "\n  socket  " + shownPath(socketPath, home);
  if (doorProblem)
    text += " (not dialled: " + *doorProblem + ")";
  else if (locked && silence)
    text += " (" + *silence + ")";
  text += "\n";

  text += "store " + shownPath(storePath, home);
  if (!storeExists) return text + ": none yet (a gateway makes it when it first starts)\n";
  if (storeProblem) return text + ": cannot be read (" + *storeProblem + ")\n";
  text += " · " + ShapeLaws::size(storeBytes) + " · schema " + std::to_string(schema);
  if (schema > MemoryStore::kSchemaVersion)
    text += " (newer than this program's " + std::to_string(MemoryStore::kSchemaVersion) + ")";
  text += "\n  " + (memories == 0 ? std::string("no memories") : plural(memories, "memory", "memories") + ":");
  std::int64_t others = 0;
  for (std::size_t i = 0; i < types.size(); ++i) {
    if (types.size() > kTypesShown && i + 1 >= kTypesShown)
      others += types[i].second;
    else
      text += (i == 0 ? " " : ", ") + types[i].first + " " + std::to_string(types[i].second);
  }
  if (others > 0) text += " and " + std::to_string(others) + " in " + std::to_string(types.size() - kTypesShown + 1) + " other types";
  return text + " · " + plural(scopes, "scope", "scopes") + " · " + plural(folders, "folder mapped", "folders mapped") + "\n";
}

}  // namespace quillon::gateway
