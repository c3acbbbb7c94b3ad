#include "QuillonGateway/AgentInventory.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <vector>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/Process.hpp"
#include "QuillonBase/Text.hpp"
#include "QuillonGateway/StoreVerbs.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

using Json = nlohmann::json;

// An agent's settings file is a few kilobytes (Claude's ~/.claude.json, which keeps per-project
// history, a few megabytes); anything bigger is not what we are looking for and is not read.
constexpr std::size_t kMaxSettingsBytes = std::size_t{8} << 20;
// A Codex rollout's first line names the folder its session ran in; it is the one content read of
// a session file the inventory makes, and only this much of it.
constexpr std::size_t kRolloutHeadBytes = std::size_t{64} << 10;
// Codex keeps one file per session, forever: the newest ones say which projects are live.
constexpr std::size_t kMaxRollouts = 200;
// Entries looked at in any one folder, so a folder of millions answers as quickly as a small one.
constexpr std::size_t kMaxEntries = 10000;
// Claude session files looked at in all, so a store of millions answers in a moment.
constexpr std::size_t kMaxSessionFiles = 100000;
// Rows of one list; the rest are counted.
constexpr std::size_t kShownRows = 20;
// Folders tried while reading one Claude project name back into a path.
constexpr int kDecodeSteps = 256;
// PATH folders looked in.
constexpr std::size_t kMaxPathFolders = 256;

std::string joined(const std::string& folder, std::string_view name) {
  if (folder.empty() || folder.back() == '/') return folder + std::string(name);
  return folder + "/" + std::string(name);
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string_view baseName(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string reason(int error) { return std::strerror(error); }

// What stat (following links) finds at a path.
struct Probe {
  enum Kind { absent, file, folder, other, unreadable } kind = absent;
  std::uintmax_t bytes = 0;
  double modified = 0;
  std::string problem{};  // for `unreadable`: why, as words that follow the path
};

Probe probe(const std::string& path, bool followLinks = true) {
  struct stat info {};
  if ((followLinks ? ::stat(path.c_str(), &info) : ::lstat(path.c_str(), &info)) != 0) {
    const int error = errno;
    struct stat link {};
    if ((error == ENOENT || error == ENOTDIR) && ::lstat(path.c_str(), &link) == 0)
      return Probe{.kind = Probe::unreadable, .problem = "is a link to nothing"};
    if (error == ENOENT || error == ENOTDIR) return Probe{};
    return Probe{.kind = Probe::unreadable, .problem = "cannot be looked at (" + reason(error) + ")"};
  }
  Probe found{.kind = S_ISREG(info.st_mode)   ? Probe::file
                      : S_ISDIR(info.st_mode) ? Probe::folder
                                              : Probe::other};
  found.bytes = static_cast<std::uintmax_t>(info.st_size);
  found.modified = static_cast<double>(info.st_mtim.tv_sec) + static_cast<double>(info.st_mtim.tv_nsec) / 1e9;
  return found;
}

// The start of a regular file: at most `limit` bytes, or with `whole`, the whole file when it is
// no bigger. Opened without blocking, so a FIFO where a file should be answers at once.
struct Head {
  bool absent = false;
  std::string bytes{};
  std::string problem{};  // words that follow the path
};

Head readHead(const std::string& path, std::size_t limit, bool whole) {
  // Only a regular file is opened: opening a device can do something.
  if (const Probe found = probe(path); found.kind != Probe::file) {
    if (found.kind == Probe::absent) return Head{.absent = true};
    if (found.kind == Probe::unreadable) return Head{.problem = found.problem};
    return Head{.problem = "is not a regular file, so it was not read"};
  }
  const base::Fd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  const int fd = file.get();
  if (fd < 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) return Head{.absent = true};
    return Head{.problem = "cannot be read (" + reason(error) + ")"};
  }
  struct stat info {};
  if (::fstat(fd, &info) != 0) return Head{.problem = "cannot be read (" + reason(errno) + ")"};
  if (!S_ISREG(info.st_mode)) return Head{.problem = "is not a regular file, so it was not read"};
  if (whole && static_cast<std::uintmax_t>(info.st_size) > limit)
    return Head{.problem = "is over " + std::to_string(limit >> 20) + " MiB, so it was not read"};
  Head head;
  head.bytes.resize(std::min<std::uintmax_t>(static_cast<std::uintmax_t>(info.st_size), limit));
  std::size_t got = 0;
  while (got < head.bytes.size()) {
    const auto count = ::read(fd, head.bytes.data() + got, head.bytes.size() - got);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Head{.problem = "cannot be read (" + reason(errno) + ")"};
    if (count == 0) break;  // the file shrank meanwhile
    got += static_cast<std::size_t>(count);
  }
  head.bytes.resize(got);
  return head;
}

struct Entry {
  std::string name;
  unsigned char type = DT_UNKNOWN;
};

// A folder's entries sorted by name, at most kMaxEntries of them.
struct Listing {
  bool absent = false;
  std::vector<Entry> entries{};
  bool cut = false;
  std::string problem{};  // words that follow the path
};

Listing list(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
  if (!dir) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) return Listing{.absent = true};
    return Listing{.problem = "cannot be read (" + reason(error) + ")"};
  }
  Listing listing;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (listing.entries.size() == kMaxEntries) {
      listing.cut = true;
      break;
    }
    listing.entries.push_back(Entry{.name = std::string(name), .type = entry->d_type});
  }
  std::sort(listing.entries.begin(), listing.entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return listing;
}

// A real folder inside `folder`: a link is not followed, so a loop of links cannot lead a walk round.
bool isFolder(const std::string& folder, const Entry& entry) {
  if (entry.type != DT_UNKNOWN) return entry.type == DT_DIR;
  return probe(joined(folder, entry.name), false).kind == Probe::folder;
}

using base::grouped;

// `bytes` is a file's size from stat, within off_t's range.
std::string bytesText(std::uintmax_t bytes) {
  return grouped(static_cast<std::int64_t>(bytes)) + (bytes == 1 ? " byte" : " bytes");
}

// Days since 1970-01-01 of the local calendar day `seconds` falls on.
long long localDay(double seconds) {
  const auto time = static_cast<std::time_t>(std::floor(seconds));
  std::tm local{};
  ::localtime_r(&time, &local);
  long long year = local.tm_year + 1900;
  const long long month = local.tm_mon + 1, dayOfMonth = local.tm_mday;
  year -= month <= 2 ? 1 : 0;
  const long long era = (year >= 0 ? year : year - 399) / 400;
  const long long yearOfEra = year - era * 400;
  const long long dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + dayOfMonth - 1;
  return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

std::string recency(double now, double when) {
  const long long days = localDay(now) - localDay(when);
  if (days == 0) return "last session today";
  if (days == 1) return "last session yesterday";
  if (days > 1 && days <= 30) return "last session " + std::to_string(days) + " days ago";
  return "last session on " + day(when);
}

// The program a hook's shell command runs: its first word, unquoted the way a shell would.
std::string programOf(std::string_view command) {
  std::string program;
  std::size_t at = command.find_first_not_of(" \t");
  while (at < command.size() && command[at] != ' ' && command[at] != '\t') {
    const char c = command[at++];
    if (c == '\'') {
      while (at < command.size() && command[at] != '\'') program += command[at++];
      ++at;
    } else if (c == '"') {
      while (at < command.size() && command[at] != '"') {
        if (command[at] == '\\' && at + 1 < command.size()) ++at;
        program += command[at++];
      }
      ++at;
    } else if (c == '\\' && at < command.size()) {
      program += command[at++];
    } else {
      program += c;
    }
  }
  return program;
}

// A settings file as JSON: absent, parsed, or why not.
struct JsonFile {
  bool absent = false;
  Json document{};
  std::string problem{};
};

JsonFile readJson(const std::string& path, bool comments) {
  Head head = readHead(path, kMaxSettingsBytes, true);
  if (head.absent || !head.problem.empty()) return JsonFile{.absent = head.absent, .problem = head.problem};
  // An empty file is what an agent leaves before its first setting: no entries, not broken.
  if (base::trimmed(head.bytes).empty()) return JsonFile{.document = Json::object()};
  Json document = Json::parse(head.bytes, nullptr, false, comments);
  if (document.is_discarded()) return JsonFile{.problem = "does not parse as JSON"};
  if (!document.is_object()) return JsonFile{.problem = "does not hold a JSON object"};
  return JsonFile{.document = std::move(document)};
}

// The MCP servers that start quillon-mcp, by name: those enabled, and those switched off
// (opencode's and Codex's `enabled = false`).
struct Servers {
  std::vector<std::string> on, off;
};

void addServer(Servers& servers, const std::string& name, std::string_view command, std::optional<bool> enabled) {
  if (baseName(command) != "quillon-mcp") return;
  (enabled == false ? servers.off : servers.on).push_back(name);
}

// Claude's and Cursor's {"name": {"command": "/path"}}, and opencode's {"command": ["/path", ...]}.
Servers jsonServers(const Json& table) {
  Servers servers;
  if (!table.is_object()) return servers;
  for (const auto& [name, server] : table.items()) {
    if (!server.is_object()) continue;
    const auto command = server.find("command");
    const auto enabled = server.find("enabled");
    std::string program;
    if (command != server.end() && command->is_string()) program = command->get<std::string>();
    if (command != server.end() && command->is_array() && !command->empty() && command->front().is_string())
      program = command->front().get<std::string>();
    addServer(servers, name, program,
              enabled != server.end() && enabled->is_boolean() ? std::optional(enabled->get<bool>()) : std::nullopt);
  }
  return servers;
}

std::string mcpPart(const std::string& file, const Servers& servers) {
  if (!servers.on.empty()) return "MCP yes (" + file + ", server " + commaJoined(servers.on) + ")";
  if (!servers.off.empty()) return "MCP off (" + file + ", server " + commaJoined(servers.off) + " is disabled)";
  return "MCP no (" + file + " names no quillon-mcp server)";
}

bool runsQuillonHook(const Json& entry) {
  if (!entry.is_object()) return false;
  const auto command = entry.find("command");
  return command != entry.end() && command->is_string() &&
         baseName(programOf(command->get<std::string>())) == "quillon-hook";
}

// The events whose hooks run quillon-hook. Claude's and Codex's hooks.<event> is a list of groups
// each holding its commands; in Cursor's the commands are the items themselves.
std::vector<std::string> hookEvents(const Json& document) {
  std::vector<std::string> events;
  const auto hooks = document.find("hooks");
  if (hooks == document.end() || !hooks->is_object()) return events;
  for (const auto& [event, items] : hooks->items()) {
    if (!items.is_array()) continue;
    bool ours = false;
    for (const auto& item : items) {
      ours = ours || runsQuillonHook(item);
      if (!item.is_object()) continue;
      const auto commands = item.find("hooks");
      if (commands == item.end() || !commands->is_array()) continue;
      for (const auto& command : *commands) ours = ours || runsQuillonHook(command);
    }
    if (ours) events.push_back(event);
  }
  return events;
}

// Claude Code names a project's session folder after the project's path with every character but
// an ASCII letter or digit turned into "-" (one per UTF-16 unit: two for a character beyond the
// BMP). "/home/mara/my_app" becomes "-home-mara-my-app".
std::string claudeName(std::string_view name) {
  std::string encoded;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'))
      encoded += c;
    else if (byte >= 0xF0)
      encoded += "--";
    else if (byte < 0x80 || byte >= 0xC0)
      encoded += '-';
  }
  return encoded;
}

// Reads Claude's project names back into paths. The name alone cannot say which "-" was a "/"
// and what the others were, so the disk decides: at each folder, the children whose own encoded
// name starts what is left are tried, the longest first. Listings are kept for the whole
// inventory, since projects share their parents.
class ProjectNames {
 public:
  std::optional<std::string> path(std::string_view name) {
    if (!name.starts_with('-')) return std::nullopt;
    int steps = kDecodeSteps;
    std::string found;
    if (walk("/", name.substr(1), steps, found)) return found;
    return std::nullopt;
  }

 private:
  struct Child {
    std::string encoded, name;
  };

  const std::vector<Child>& children(const std::string& folder) {
    const auto [at, added] = listings_.try_emplace(folder);
    if (!added) return at->second;
    for (const auto& entry : list(folder).entries)
      if (entry.type == DT_DIR || entry.type == DT_LNK || entry.type == DT_UNKNOWN)
        at->second.push_back(Child{.encoded = claudeName(entry.name), .name = entry.name});
    std::stable_sort(at->second.begin(), at->second.end(),
                     [](const Child& a, const Child& b) { return a.encoded.size() > b.encoded.size(); });
    return at->second;
  }

  // Each step eats at least one character of `rest`, and `steps` bounds the tries, so neither a
  // loop of links nor a folder of look-alike names keeps it going.
  bool walk(const std::string& folder, std::string_view rest, int& steps, std::string& found) {
    if (rest.empty()) {
      found = folder;
      return true;
    }
    for (const auto& child : children(folder)) {
      const auto size = child.encoded.size();
      if (!rest.starts_with(child.encoded) || (rest.size() > size && rest[size] != '-')) continue;
      if (--steps < 0) return false;
      const std::string path = joined(folder, child.name);
      if (probe(path).kind != Probe::folder) continue;
      if (walk(path, rest.substr(std::min(rest.size(), size + 1)), steps, found)) return true;
    }
    return false;
  }

  std::map<std::string, std::vector<Child>> listings_;
};

// The folder a Codex session ran in: payload.cwd of its rollout's first line, the session_meta
// record. That line may carry the session's instructions and outgrow the bytes read; then the
// first "cwd" key of what was read is taken, which the record writes before them.
std::optional<std::string> rolloutFolder(std::string_view head) {
  const auto line = head.substr(0, head.find('\n'));
  const Json record = Json::parse(line, nullptr, false);
  if (record.is_object()) {
    const auto payload = record.find("payload");
    if (payload != record.end() && payload->is_object()) {
      const auto cwd = payload->find("cwd");
      if (cwd != payload->end() && cwd->is_string()) return cwd->get<std::string>();
    }
    return std::nullopt;
  }
  const auto key = line.find("\"cwd\"");
  if (key == std::string_view::npos) return std::nullopt;
  auto at = line.find_first_not_of(" \t", key + 5);
  if (at == std::string_view::npos || line[at] != ':') return std::nullopt;
  at = line.find_first_not_of(" \t", at + 1);
  if (at == std::string_view::npos || line[at] != '"') return std::nullopt;
  auto end = at + 1;
  while (end < line.size() && line[end] != '"') end += line[end] == '\\' ? 2 : 1;
  if (end >= line.size()) return std::nullopt;
  const Json value = Json::parse(line.substr(at, end - at + 1), nullptr, false);
  if (!value.is_string()) return std::nullopt;
  return value.get<std::string>();
}

// One project row before it is printed: its path (or, when no folder matches, the store's own
// name for it), and its newest session.
struct Project {
  std::string folder;
  bool gone = false;
  double last = 0;
};

// What an agent's session store revealed.
struct Sessions {
  std::vector<Project> projects;  // newest first, at most kShownRows
  std::size_t more = 0;           // projects beyond those
  std::string none;               // why there are none, when there are none
  std::vector<std::string> notes; // what was left out, and why
};

bool newerFirst(const std::pair<double, std::string>& a, const std::pair<double, std::string>& b) {
  return a.first != b.first ? a.first > b.first : a.second < b.second;
}

class Inventory {
 public:
  explicit Inventory(const InventoryPlaces& places)
      : places_(places),
        home_(withoutTrailingSlashes(places.home)),
        codexHome_(places.codexHome ? withoutTrailingSlashes(*places.codexHome) : joined(home_, ".codex")),
        configHome_(places.configHome ? withoutTrailingSlashes(*places.configHome) : joined(home_, ".config")) {}

  std::string text() {
    std::string blocks;
    bool any = false;
    for (Block (Inventory::*agent)() :
         {&Inventory::claude, &Inventory::codex, &Inventory::cursor, &Inventory::opencode}) {
      const auto [block, installed] = (this->*agent)();
      blocks += "\n" + block;
      any = any || installed;
    }
    std::string lines = "AI tools on this machine — read-only: the agents' settings and the first line of Codex's "
                       "session files were read; memory files were only looked at, never opened.\n" +
                       blocks;
    if (any)
      lines += "\nSection 1's files are the home-level ones duplicates.md cleans up; section 2's per-project memory "
              "files are listed so they are left alone.";
    else
      lines += "\nNo AI tool found: none of their programs is on PATH and none of their folders exists.";
    return lines;
  }

 private:
  using Block = std::pair<std::string, bool>;  // the agent's lines, and whether it is installed

  std::string shown(const std::string& path) const {
    if (home_.empty() || home_ == "/") return path;
    if (path == home_) return "~";
    if (path.size() > home_.size() && path.starts_with(home_) && path[home_.size()] == '/')
      return "~" + path.substr(home_.size());
    return path;
  }

  std::optional<std::string> onPath(std::initializer_list<std::string_view> programs) const {
    std::vector<std::string> folders;
    for (std::size_t start = 0; start <= places_.path.size() && folders.size() < kMaxPathFolders;) {
      const auto colon = std::min(places_.path.find(':', start), places_.path.size());
      // An empty or relative entry means the gateway's own folder, which says nothing about the user.
      if (colon > start && places_.path[start] == '/') folders.push_back(places_.path.substr(start, colon - start));
      start = colon + 1;
    }
    for (const auto program : programs)
      for (const auto& folder : folders) {
        const std::string candidate = joined(folder, program);
        if (probe(candidate).kind == Probe::file && ::access(candidate.c_str(), X_OK) == 0) return candidate;
      }
    return std::nullopt;
  }

  // The heading line, or the one line of an agent that is not installed (then nothing else).
  std::optional<std::string> installed(const std::string& name, std::initializer_list<std::string_view> programs,
                                       const std::string& folder) const {
    const auto program = onPath(programs);
    const bool hasFolder = probe(folder).kind == Probe::folder;
    if (!program && !hasFolder) return std::nullopt;
    std::string signs = program ? shown(*program) + " on PATH" : "";
    if (hasFolder) signs += (signs.empty() ? "" : ", ") + shown(folder);
    return name + " — installed (" + signs + ")";
  }

  std::string notInstalled(const std::string& name, std::initializer_list<std::string_view> programs,
                           const std::string& folder) const {
    std::string names;
    for (const auto each : programs) names += (names.empty() ? "" : " or ") + std::string(each);
    return name + ": not installed (no " + names + " on PATH, no " + shown(folder) + ").\n";
  }

  std::string jsonMcp(const std::string& path, const std::string& table, bool comments) const {
    const JsonFile file = readJson(path, comments);
    if (file.absent) return "MCP no (no " + shown(path) + ")";
    if (!file.problem.empty()) return "MCP unknown (" + shown(path) + " " + file.problem + ")";
    const auto servers = file.document.find(table);
    return mcpPart(shown(path), servers == file.document.end() ? Servers{} : jsonServers(*servers));
  }

  std::string tomlMcp(const std::string& path) const {
    const Head head = readHead(path, kMaxSettingsBytes, true);
    if (head.absent) return "MCP no (no " + shown(path) + ")";
    if (!head.problem.empty()) return "MCP unknown (" + shown(path) + " " + head.problem + ")";
    Servers servers;
    try {
      const toml::table document = toml::parse(head.bytes);
      if (const auto* table = document["mcp_servers"].as_table())
        for (const auto& [key, node] : *table)
          if (const auto* server = node.as_table())
            addServer(servers, std::string(key.str()), (*server)["command"].value_or(std::string()),
                      (*server)["enabled"].value<bool>());
    } catch (const toml::parse_error& error) {
      return "MCP unknown (" + shown(path) + " does not parse as TOML: " + std::string(error.description()) +
             ", line " + std::to_string(error.source().begin.line) + ")";
    }
    return mcpPart(shown(path), servers);
  }

  std::string jsonHooks(const std::string& path) const {
    const JsonFile file = readJson(path, false);
    if (file.absent) return "hooks no (no " + shown(path) + ")";
    if (!file.problem.empty()) return "hooks unknown (" + shown(path) + " " + file.problem + ")";
    const auto events = hookEvents(file.document);
    if (events.empty()) return "hooks no (" + shown(path) + " runs no quillon-hook)";
    return "hooks yes (" + shown(path) + ": " + commaJoined(events) + ")";
  }

  // A home-level memory file, stat'ed only; nothing when it does not exist.
  std::optional<std::string> memoryFile(const std::string& path) const {
    const Probe found = probe(path);
    switch (found.kind) {
      case Probe::absent:
        return std::nullopt;
      case Probe::file:
        return shown(path) + " · " + bytesText(found.bytes) + " · modified " + day(found.modified);
      case Probe::folder:
      case Probe::other:
        return shown(path) + " · not a regular file";
      case Probe::unreadable:
        break;
    }
    return shown(path) + " " + found.problem;
  }

  static std::string memorySection(const std::vector<std::string>& lines, const std::string& none,
                                   const std::string& aside = "") {
    const std::string besides = aside.empty() ? "" : " — " + aside;
    if (lines.empty()) return "  1. Home-level memory files: none " + none + besides + ".\n";
    std::string section = "  1. Home-level memory files" + besides + ":\n";
    for (const auto& line : lines) section += "     " + line + "\n";
    return section;
  }

  std::string memoryFiles(const std::vector<std::string>& paths) const {
    std::vector<std::string> lines, looked;
    for (const auto& path : paths) {
      looked.push_back(shown(path));
      if (auto line = memoryFile(path)) lines.push_back(std::move(*line));
    }
    return memorySection(lines, "(looked for " + commaJoined(looked) + ")");
  }

  // Section 2: each project with its recency and the memory files it keeps (stat only).
  std::string projectSection(const Sessions& sessions, const std::vector<std::string>& memoryNames) const {
    std::string notes;
    for (const auto& note : sessions.notes) notes += "; " + note;
    if (!notes.empty()) notes = " (" + notes.substr(2) + ")";
    if (sessions.projects.empty())
      return "  2. Projects its sessions reveal: none " + sessions.none + notes + ".\n";
    std::string section = "  2. Projects its sessions reveal, newest first" + notes + ":\n";
    for (const auto& project : sessions.projects) {
      section += "     " + shown(project.folder) + (project.gone ? " · folder gone" : "") + " · " +
                 recency(places_.now, project.last);
      if (!project.gone)
        for (const auto& name : memoryNames)
          if (const Probe found = probe(joined(project.folder, name)); found.kind == Probe::file)
            section += " · " + name + " " + bytesText(found.bytes);
      section += "\n";
    }
    if (sessions.more > 0) section += "     … and " + std::to_string(sessions.more) + " more\n";
    return section;
  }

  // Newest first, the shown ones cut to kShownRows and the rest counted.
  static void keepNewest(std::vector<std::pair<double, std::string>>& found, Sessions& sessions) {
    std::sort(found.begin(), found.end(), newerFirst);
    if (found.size() > kShownRows) {
      sessions.more = found.size() - kShownRows;
      found.resize(kShownRows);
    }
  }

  // ~/.claude/projects/<encoded path>/<session>.jsonl: a project per folder, its recency the
  // newest session file's.
  Sessions claudeSessions() {
    const std::string store = joined(home_, ".claude/projects");
    const Listing folders = list(store);
    Sessions sessions;
    if (folders.absent) sessions.none = "(no " + shown(store) + ")";
    if (!folders.problem.empty()) sessions.none = "(" + shown(store) + " " + folders.problem + ")";
    if (folders.cut) sessions.notes.push_back("only the first " + grouped(kMaxEntries) + " folders looked at");
    std::vector<std::pair<double, std::string>> found;
    std::size_t looked = 0;
    for (const auto& folder : folders.entries) {
      if (looked >= kMaxSessionFiles) {
        sessions.notes.push_back("stopped after " + grouped(kMaxSessionFiles) + " session files");
        break;
      }
      if (!isFolder(store, folder)) continue;
      const std::string inside = joined(store, folder.name);
      std::optional<double> newest;
      for (const auto& file : list(inside).entries) {
        if (!file.name.ends_with(".jsonl") || (file.type != DT_REG && file.type != DT_UNKNOWN)) continue;
        ++looked;
        const Probe session = probe(joined(inside, file.name), false);
        if (session.kind == Probe::file && (!newest || session.modified > *newest)) newest = session.modified;
      }
      if (newest) found.emplace_back(*newest, folder.name);
    }
    if (found.empty() && sessions.none.empty()) sessions.none = "(" + shown(store) + " holds no session)";
    keepNewest(found, sessions);
    for (const auto& [last, name] : found) {
      const auto path = names_.path(name);
      sessions.projects.push_back(Project{.folder = path.value_or(name), .gone = !path, .last = last});
    }
    return sessions;
  }

  // <codex home>/sessions/YYYY/MM/DD/rollout-*.jsonl: the newest kMaxRollouts, grouped by the
  // folder each one's first line names.
  Sessions codexSessions() const {
    const std::string store = joined(codexHome_, "sessions");
    Sessions sessions;
    const Listing years = list(store);
    if (years.absent) sessions.none = "(no " + shown(store) + ")";
    if (!years.problem.empty()) sessions.none = "(" + shown(store) + " " + years.problem + ")";
    // The dated folders, newest first: names of `digits` digits.
    const auto dated = [](const std::string& folder, const Listing& listing, std::size_t digits) {
      std::vector<std::string> names;
      for (const auto& entry : listing.entries)
        if (entry.name.size() == digits && entry.name.find_first_not_of("0123456789") == std::string::npos &&
            isFolder(folder, entry))
          names.push_back(joined(folder, entry.name));
      std::sort(names.rbegin(), names.rend());
      return names;
    };
    std::vector<std::string> rollouts;
    bool older = false;
    for (const auto& year : dated(store, years, 4)) {
      for (const auto& month : dated(year, list(year), 2)) {
        for (const auto& dayFolder : dated(month, list(month), 2)) {
          const Listing files = list(dayFolder);
          for (auto file = files.entries.rbegin(); file != files.entries.rend() && !older; ++file) {
            if (!file->name.starts_with("rollout-") || !file->name.ends_with(".jsonl")) continue;
            older = rollouts.size() == kMaxRollouts;
            if (!older) rollouts.push_back(joined(dayFolder, file->name));
          }
          if (older) break;
        }
        if (older) break;
      }
      if (older) break;
    }
    std::map<std::string, double> newest;
    std::size_t nameless = 0;
    for (const auto& rollout : rollouts) {
      const Probe found = probe(rollout, false);
      const Head head = found.kind == Probe::file ? readHead(rollout, kRolloutHeadBytes, false) : Head{.absent = true};
      const auto folder = head.problem.empty() && !head.absent ? rolloutFolder(head.bytes) : std::nullopt;
      if (!folder || !folder->starts_with('/')) {
        ++nameless;
        continue;
      }
      auto [at, added] = newest.try_emplace(withoutTrailingSlashes(*folder), found.modified);
      if (!added) at->second = std::max(at->second, found.modified);
    }
    if (older) sessions.notes.push_back("from its newest " + std::to_string(kMaxRollouts) + " sessions");
    if (nameless > 0) sessions.notes.push_back(plural(static_cast<std::int64_t>(nameless), "session", "sessions") +
                                               " named no folder");
    if (newest.empty() && sessions.none.empty()) sessions.none = "(" + shown(store) + " holds no session)";
    std::vector<std::pair<double, std::string>> found;
    for (const auto& [folder, last] : newest) found.emplace_back(last, folder);
    keepNewest(found, sessions);
    for (const auto& [last, folder] : found)
      sessions.projects.push_back(Project{.folder = folder, .gone = probe(folder).kind != Probe::folder, .last = last});
    return sessions;
  }

  Block claude() {
    const std::string folder = joined(home_, ".claude");
    const auto heading = installed("Claude Code", {"claude"}, folder);
    if (!heading) return {notInstalled("Claude Code", {"claude"}, folder), false};
    return {*heading + " · connected to Quillon: " + jsonMcp(joined(home_, ".claude.json"), "mcpServers", false) +
                ", " + jsonHooks(joined(folder, "settings.json")) + "\n" +
                memoryFiles({joined(folder, "CLAUDE.md")}) +
                projectSection(claudeSessions(), {"CLAUDE.md", ".claude/CLAUDE.md"}),
            true};
  }

  Block codex() {
    const auto heading = installed("Codex", {"codex"}, codexHome_);
    if (!heading) return {notInstalled("Codex", {"codex"}, codexHome_), false};
    return {*heading + " · connected to Quillon: " + tomlMcp(joined(codexHome_, "config.toml")) + ", " +
                jsonHooks(joined(codexHome_, "hooks.json")) + "\n" +
                memoryFiles({joined(codexHome_, "AGENTS.md"), joined(codexHome_, "AGENTS.override.md")}) +
                projectSection(codexSessions(), {"AGENTS.md", "AGENTS.override.md"}),
            true};
  }

  Block cursor() {
    const std::string folder = joined(home_, ".cursor");
    const auto heading = installed("Cursor", {"cursor", "cursor-agent"}, folder);
    if (!heading) return {notInstalled("Cursor", {"cursor", "cursor-agent"}, folder), false};
    const std::string rules = joined(folder, "rules");
    const Listing listing = list(rules);
    std::vector<std::string> lines;
    std::size_t more = 0;
    if (!listing.problem.empty()) lines.push_back(shown(rules) + " " + listing.problem);
    for (const auto& entry : listing.entries) {
      const std::string path = joined(rules, entry.name);
      if (probe(path).kind == Probe::folder) continue;
      if (lines.size() == kShownRows) {
        ++more;
      } else if (auto line = memoryFile(path)) {
        lines.push_back(std::move(*line));
      }
    }
    if (more > 0) lines.push_back("… and " + std::to_string(more) + " more");
    if (listing.cut) lines.push_back("… only the first " + grouped(kMaxEntries) + " entries were looked at");
    return {*heading + " · connected to Quillon: " + jsonMcp(joined(folder, "mcp.json"), "mcpServers", false) + ", " +
                jsonHooks(joined(folder, "hooks.json")) + "\n" +
                memorySection(lines, "in " + shown(rules),
                              "Cursor keeps its user rules in its settings, not in a file") +
                "  2. Projects: no session store read here.\n",
            true};
  }

  Block opencode() {
    const std::string folder = joined(configHome_, "opencode");
    const auto heading = installed("opencode", {"opencode"}, folder);
    if (!heading) return {notInstalled("opencode", {"opencode"}, folder), false};
    // opencode's settings are JSON with comments.
    return {*heading + " · connected to Quillon: " + jsonMcp(joined(folder, "opencode.json"), "mcp", true) +
                ", no hooks (opencode runs no command hooks)\n" + memoryFiles({joined(folder, "AGENTS.md")}) +
                "  2. Projects: no session store read here.\n",
            true};
  }

  const InventoryPlaces& places_;
  const std::string home_, codexHome_, configHome_;
  ProjectNames names_;
};

std::optional<std::string> environment(const char* name) {
  auto value = base::environmentVariable(name);
  if (value && value->empty()) return std::nullopt;
  return value;
}

// A relative folder would be read from wherever the gateway happens to run: not the user's.
std::optional<std::string> absolute(std::optional<std::string> folder) {
  if (folder && folder->front() != '/') return std::nullopt;
  return folder;
}

}  // namespace

std::string agentInventory(const InventoryPlaces& places) { return Inventory(places).text(); }

GatewayResponse answer(VerbContext& context, const wire::read::ConfigScan&) {
  try {
    std::string home = environment("HOME").value_or("");
    if (home.empty())
      if (const passwd* entry = ::getpwuid(::geteuid()); entry != nullptr && entry->pw_dir != nullptr)
        home = entry->pw_dir;
    return text(agentInventory(InventoryPlaces{.home = home,
                                               .path = environment("PATH").value_or(""),
                                               .codexHome = absolute(environment("CODEX_HOME")),
                                               .configHome = absolute(environment("XDG_CONFIG_HOME")),
                                               .now = context.now}));
  } catch (const std::exception& error) {
    return failure("The inventory could not be taken (" + std::string(error.what()) +
                   "); nothing was changed. Look at the home-level files directly instead: ~/.claude/CLAUDE.md, "
                   "~/.codex/AGENTS.md, ~/.config/opencode/AGENTS.md.");
  } catch (...) {
    return failure("The inventory could not be taken; nothing was changed. Look at the home-level files directly "
                   "instead: ~/.claude/CLAUDE.md, ~/.codex/AGENTS.md, ~/.config/opencode/AGENTS.md.");
  }
}

}  // namespace quillon::gateway
