#include "QuillonGateway/StoreTools.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "QuillonBase/SystemError.hpp"
#include "QuillonGateway/GatewayDaemon.hpp"
#include "QuillonGateway/GatewayStatus.hpp"
#include "QuillonGateway/MemoryStore.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreExport.hpp"
#include "QuillonGateway/StoreWording.hpp"
#include "QuillonWire/ClientVersion.hpp"

namespace quillon::gateway {

namespace {

constexpr const char* kUsage =
    "usage: quillon-gateway status | export [FILE] [--force] | import FILE [--dry-run] | backup FILE [--force]\n";

bool isTool(std::string_view name) { return name == "status" || name == "export" || name == "import" || name == "backup"; }

double now() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

bool exists(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0;
}

using base::systemError;

// Whether `target` is one of the store's own files: replacing it would put a copy over what it copies.
bool isStore(const std::string& target, const std::string& store) {
  struct stat targetFacts {}, storeFacts {};
  if (::stat(target.c_str(), &targetFacts) != 0) return false;
  for (const char* suffix : {"", "-wal", "-shm"})
    if (::stat((store + suffix).c_str(), &storeFacts) == 0 && targetFacts.st_dev == storeFacts.st_dev &&
        targetFacts.st_ino == storeFacts.st_ino)
      return true;
  return false;
}

// A file written under a passing name beside its own, then put in place whole, so a reader never
// meets half of it and a failure leaves nothing behind.
class PendingFile {
 public:
  explicit PendingFile(std::string target) : target_(std::move(target)) {
    std::filesystem::path at(target_);
    path_ = (at.has_parent_path() ? at.parent_path().string() + "/" : std::string()) + "." +
            at.filename().string() + ".partial-XXXXXX";
    const int fd = ::mkstemp(path_.data());  // 0600: a store's words are the user's alone
    if (fd < 0)
      problem_ = systemError("cannot create a file beside " + target_);
    else
      ::close(fd);
  }
  ~PendingFile() {
    if (placed_) return;
    // SQLite's own files beside a copy it was writing go too.
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) ::unlink((path_ + suffix).c_str());
  }
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  const std::string& path() const { return path_; }
  const std::optional<std::string>& problem() const { return problem_; }

  // Synced to disk, then at the target: over a file already there only with `replace`; otherwise
  // linked, which refuses an existing name even one made a moment ago.
  std::optional<std::string> place(bool replace) {
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    const bool synced = fd >= 0 && ::fsync(fd) == 0;
    if (fd >= 0) ::close(fd);
    if (!synced) return systemError("sync " + path_);
    if (replace) {
      if (::rename(path_.c_str(), target_.c_str()) != 0) return systemError("rename to " + target_);
    } else {
      if (::link(path_.c_str(), target_.c_str()) != 0)
        return errno == EEXIST ? target_ + " already exists; pass --force to replace it" : systemError("link " + target_);
      ::unlink(path_.c_str());
    }
    placed_ = true;
    return std::nullopt;
  }

 private:
  std::string target_, path_;
  std::optional<std::string> problem_;
  bool placed_ = false;
};

struct Invocation {
  std::vector<std::string> files;
  bool force = false, dryRun = false;
  std::string unknown;  // the first option the tool does not take
};

// The tool's FILE arguments and flags.
Invocation parse(const std::vector<std::string>& arguments, bool takesForce, bool takesDryRun) {
  Invocation invocation;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const auto& argument = arguments[i];
    if (argument == "--force" && takesForce)
      invocation.force = true;
    else if (argument == "--dry-run" && takesDryRun)
      invocation.dryRun = true;
    else if (argument.size() > 1 && argument[0] == '-')
      invocation.unknown = invocation.unknown.empty() ? argument : invocation.unknown;
    else
      invocation.files.push_back(argument);
  }
  return invocation;
}

int failed(std::ostream& err, const std::string& reason) {
  err << "quillon-gateway: " << reason << "\n";
  return StoreTools::kFailed;
}

// The reason, and that nothing changed: the person must not wonder what an import left behind.
std::string unchanged(std::string reason, std::string_view nothing) {
  if (!reason.empty() && reason.back() == '.') reason.pop_back();
  return reason + "; " + std::string(nothing);
}

std::string counted(std::int64_t count, std::string_view one, std::string_view many,
                    const std::vector<std::pair<std::int64_t, std::string>>& asides) {
  std::string text = plural(count, one, many), within;
  for (const auto& [number, what] : asides)
    if (number > 0) within += (within.empty() ? "" : ", ") + std::to_string(number) + " " + what;
  return within.empty() ? text : text + " (" + within + ")";
}

int status(const DaemonSettings& settings, const kit::Environment& environment, std::ostream& out, std::ostream& err) {
  const auto look = GatewayStatus::look(settings);
  out << look.report(environment("HOME").value_or(""), now(), wire::ClientVersion::current());
  if (look.exitCode() == StoreTools::kFailed)
    failed(err, "a gateway holds " + look.lockPath + " but does not answer at " + look.socketPath + " (" +
                    look.silence.value_or("") + ")");
  return look.exitCode();
}

int exportStore(const Invocation& invocation, const DaemonSettings& settings, std::ostream& out, std::ostream& err) {
  const std::string store = settings.storePath();
  if (!exists(store)) return failed(err, "export: there is no store at " + store + " yet, so nothing to export");
  const std::string target = invocation.files.empty() ? "-" : invocation.files.front();
  try {
    Database database(store, Database::Access::readOnly);
    if (target == "-") {
      StoreExport::write(database, out, now());
      return out.flush() ? 0 : failed(err, "export: standard output could not take it all");
    }
    if (isStore(target, store)) return failed(err, "export: " + target + " is the store itself");
    if (exists(target) && !invocation.force) return failed(err, "export: " + target + " already exists; pass --force to replace it");
    PendingFile pending(target);
    if (pending.problem()) return failed(err, "export: " + *pending.problem());
    std::ofstream file(pending.path(), std::ios::binary | std::ios::trunc);
    const auto written = StoreExport::write(database, file, now());
    file.close();
    if (!file) return failed(err, "export: writing " + target + " failed (" + std::strerror(errno) + "); nothing was written");
    if (auto problem = pending.place(invocation.force)) return failed(err, "export: " + *problem);
    out << "Exported " << counted(written.memories, "memory", "memories", {}) << ", "
        << counted(written.folders, "folder mapping", "folder mappings", {}) << " and "
        << counted(written.names, "name", "names", {}) << " to " << target << ".\n";
    return 0;
  } catch (const SqlError& error) {
    return failed(err, "export: store " + store + ": " + error.what());
  }
}

int importStore(const Invocation& invocation, const DaemonSettings& settings, std::ostream& out, std::ostream& err) {
  const std::string& source = invocation.files.front();
  std::ifstream file;
  if (source != "-") {
    if (std::filesystem::is_directory(source)) return failed(err, "import: " + source + " is a folder, not an export");
    file.open(source, std::ios::binary);
    if (!file) return failed(err, systemError("import: cannot read " + source));
  }
  const std::string named = source == "-" ? "standard input" : source;
  auto read = StoreExport::read(source == "-" ? std::cin : file);
  if (auto* refusal = std::get_if<std::string>(&read))
    return failed(err, "import " + named + ": " + unchanged(*refusal, "nothing was imported"));
  const std::string store = settings.storePath();
  const bool fresh = !exists(store);
  if (!invocation.dryRun) {
    std::error_code ignored;
    std::filesystem::create_directories(settings.dataFolder, ignored);
    ::chmod(settings.dataFolder.c_str(), 0700);
  }
  ImportCounts counts;
  try {
    counts = StoreExport::import(std::get<ExportContents>(read), store, invocation.dryRun);
  } catch (const SqlError& error) {
    return failed(err, "import " + named + ": store " + store + ": " + unchanged(error.what(), "nothing was imported"));
  }
  if (fresh && !invocation.dryRun) ::chmod(store.c_str(), 0600);
  out << (invocation.dryRun ? "Would import " : "Imported ")
      << counted(counts.memories, "memory", "memories", {{counts.memoriesThere, "already there"}}) << ", "
      << counted(counts.folders, "folder mapping", "folder mappings",
                 {{counts.foldersThere, "already there"},
                  {counts.foldersKept, counts.foldersKept == 1 ? "kept as this store maps it" : "kept as this store maps them"}})
      << ", " << counted(counts.names, "name", "names", {{counts.namesThere, "already there"}}) << " from " << named
      << ".\n";
  return 0;
}

int backup(const Invocation& invocation, const DaemonSettings& settings, std::ostream& out, std::ostream& err) {
  const std::string store = settings.storePath();
  const std::string& target = invocation.files.front();
  if (!exists(store)) return failed(err, "backup: there is no store at " + store + " yet, so nothing to back up");
  if (isStore(target, store)) return failed(err, "backup: " + target + " is the store itself");
  if (exists(target) && !invocation.force) return failed(err, "backup: " + target + " already exists; pass --force to replace it");
  PendingFile pending(target);
  if (pending.problem()) return failed(err, "backup: " + *pending.problem());
  std::int64_t memories = 0;
  try {
    Database source(store, Database::Access::readOnly);
    Database copy(pending.path());
    source.copyInto(copy);
    // One self-contained file, with no WAL that must travel beside it.
    copy.exec("PRAGMA journal_mode = DELETE");
    auto& check = copy.cached("PRAGMA integrity_check");
    const std::string verdict = check.step() ? check.text(0) : "no answer";
    check.reset();
    if (verdict != "ok") return failed(err, "backup: the copy failed SQLite's integrity check (" + verdict + "); nothing was written");
    auto& count = copy.cached("SELECT COUNT(*) FROM memories");
    memories = count.step() ? count.integer(0) : 0;
    count.reset();
  } catch (const SqlError& error) {
    return failed(err, "backup: " + std::string(error.what()) + "; nothing was written");
  }
  struct stat copied {};
  ::stat(pending.path().c_str(), &copied);
  if (auto problem = pending.place(invocation.force)) return failed(err, "backup: " + *problem);
  out << "Backed up the store (" << plural(memories, "memory", "memories") << ", "
      << ShapeLaws::size(static_cast<std::size_t>(copied.st_size)) << ", integrity checked) to " << target << ".\n";
  return 0;
}

}  // namespace

std::optional<int> StoreTools::run(const std::vector<std::string>& arguments, const kit::Environment& environment,
                                   std::ostream& out, std::ostream& err) {
  if (arguments.empty() || !isTool(arguments.front())) return std::nullopt;
  const std::string& tool = arguments.front();
  const bool copies = tool == "export" || tool == "backup";
  const auto invocation = parse(arguments, copies, tool == "import");
  const std::size_t files = invocation.files.size();
  const bool fits = invocation.unknown.empty() && (tool == "status" ? files == 0 : tool == "export" ? files <= 1 : files == 1);
  if (!fits) {
    err << "quillon-gateway: " << tool
        << (!invocation.unknown.empty() ? " takes no option " + invocation.unknown
            : tool == "status"          ? std::string(" takes no FILE")
            : files == 0                ? std::string(" needs a FILE")
                                        : std::string(" takes one FILE"))
        << "\n"
        << kUsage;
    return kUsageError;
  }
  const auto settings = DaemonSettings::fromEnvironment(environment);
  if (tool == "status") return status(settings, environment, out, err);
  if (tool == "export") return exportStore(invocation, settings, out, err);
  if (tool == "import") return importStore(invocation, settings, out, err);
  return backup(invocation, settings, out, err);
}

std::optional<int> StoreTools::run(int argc, char** argv) {
  if (argc < 2 || !isTool(argv[1])) return std::nullopt;
  // What the tools create (a store, an export, a backup) is the user's alone, as the gateway's files are.
  ::umask(077);
  return run(std::vector<std::string>(argv + 1, argv + argc), kit::processEnvironment(), std::cout, std::cerr);
}

}  // namespace quillon::gateway
