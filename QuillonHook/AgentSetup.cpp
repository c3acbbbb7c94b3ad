#include "QuillonHook/AgentSetup.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/SystemError.hpp"
#include "QuillonHook/CodexConfig.hpp"

namespace quillon::hook {

namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

// A file as found: absent, or its bytes.
std::optional<std::string> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Writes the whole file through a temporary beside it and a rename, so an agent reading it
// meanwhile sees the old file or the new one, never half of one; keeps the file's mode.
std::optional<std::string> writeFile(const std::string& path, const std::string& bytes) {
  std::error_code error;
  fs::create_directories(fs::path(path).parent_path(), error);
  if (error) return "cannot make " + fs::path(path).parent_path().string() + ": " + error.message();
  struct stat info {};
  const mode_t mode = ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0600;
  const std::string temporary = path + ".quillon-new";
  base::Fd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
  if (file.get() < 0) return base::systemError("cannot write " + temporary);
  ::fchmod(file.get(), mode);
  if (!base::writeAll(file.get(), bytes)) {
    const int failure = errno;
    file.reset();
    ::unlink(temporary.c_str());
    return base::systemError("cannot write " + temporary, failure);
  }
  // The close's own result counts: a failed write may show only there.
  if (::fsync(file.get()) != 0 || ::close(file.release()) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0) {
    const int failure = errno;
    ::unlink(temporary.c_str());
    return base::systemError("cannot replace " + path, failure);
  }
  return std::nullopt;
}

// The indentation the file already uses (its first indented line), two blanks for a new one.
int indentationOf(const std::string& bytes) {
  const auto newline = bytes.find('\n');
  if (newline == std::string::npos) return 2;
  const auto first = bytes.find_first_not_of(' ', newline + 1);
  if (first == std::string::npos || first == newline + 1) return 2;
  return static_cast<int>(first - newline - 1);
}

// Shell words: a path with anything but the safe characters goes in single quotes.
std::string shellQuoted(const std::string& word) {
  if (!word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+:@") ==
                           std::string::npos)
    return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// Whether a hook entry runs quillon-hook: its command's first word names a program of that name.
bool isOurs(const Json& entry) {
  if (!entry.is_object() || !entry.contains("command") || !entry["command"].is_string()) return false;
  const std::string command = entry["command"];
  std::string program;
  if (command.starts_with('\'')) {
    for (std::size_t i = 1; i < command.size(); ++i) {
      if (command.compare(i, 4, "'\\''") == 0) {
        program += '\'';
        i += 3;
      } else if (command[i] == '\'') {
        break;
      } else {
        program += command[i];
      }
    }
  } else {
    program = command.substr(0, command.find(' '));
  }
  return fs::path(program).filename() == "quillon-hook";
}

// What one file becomes: the change made to the parsed document, said in words ("" for none).
using JsonChange = std::function<std::string(Json& document)>;

class Files {
 public:
  Files(const SetupPaths& paths, SetupAction action, bool dryRun, SetupReport& report)
      : paths_(paths), action_(action), dryRun_(dryRun), report_(report) {}

  std::string at(const std::string& relative) const { return paths_.home + "/" + relative; }

  void editJson(const std::string& relative, const JsonChange& change) {
    const std::string path = at(relative);
    const auto bytes = readFile(path);
    if (!bytes && action_ == SetupAction::uninstall) return say(relative, "");
    Json document = Json::object();
    if (bytes && bytes->find_first_not_of(" \t\r\n") != std::string::npos) {
      document = Json::parse(*bytes, nullptr, false);
      if (document.is_discarded()) {
        const bool commented = !Json::parse(*bytes, nullptr, false, true).is_discarded();
        return refuse(relative, commented ? "holds comments, which rewriting it would lose; make the change by hand"
                                          : "does not parse as JSON");
      }
      if (!document.is_object()) return refuse(relative, "does not hold a JSON object");
    }
    const std::string what = change(document);
    if (what.empty()) return say(relative, "");
    const bool finalNewline = !bytes || bytes->empty() || bytes->back() == '\n';
    std::string updated = document.dump(bytes ? indentationOf(*bytes) : 2) + (finalNewline ? "\n" : "");
    std::optional<std::string> removeInstead;
    if (action_ == SetupAction::uninstall) {
      if (const auto kept = readFile(path + ".bak")) {
        // What is left is what the user had: their very bytes, formatting and all.
        const Json before = Json::parse(*kept, nullptr, false);
        if (!before.is_discarded() && before == document) updated = *kept;
      } else if (document.empty()) {
        removeInstead = path;  // install made this file; nothing of the user's is in it
      }
    }
    commit(relative, bytes, updated, what, removeInstead.has_value());
  }

  void editToml(const std::string& relative, const std::function<TomlChange(const std::string&)>& change) {
    const std::string path = at(relative);
    const auto bytes = readFile(path);
    if (!bytes && action_ == SetupAction::uninstall) return say(relative, "");
    const TomlChange result = change(bytes.value_or(""));
    if (!result.problem.empty()) return refuse(relative, result.problem);
    if (!result.text) return say(relative, "");
    std::string updated = *result.text;
    bool remove = false;
    if (action_ == SetupAction::uninstall) {
      const auto kept = readFile(path + ".bak");
      const auto stripped = [](std::string text) {
        while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
        return text;
      };
      if (kept && stripped(*kept) == stripped(updated)) updated = *kept;
      if (!kept && stripped(updated).empty()) remove = true;
    }
    commit(relative, bytes, updated, result.what, remove);
  }

  void note(std::string text) { report_.notes.push_back(std::move(text)); }

 private:
  void say(const std::string& relative, const std::string& what) {
    if (!what.empty()) {
      report_.lines.push_back("~/" + relative + (dryRun_ ? " (a dry run: not written): " : ": ") + what);
    } else {
      report_.lines.push_back("~/" + relative + ": " +
                              (action_ == SetupAction::install ? "already set up" : "nothing of Quillon's in it"));
    }
  }

  void refuse(const std::string& relative, const std::string& why) {
    report_.failed = true;
    report_.lines.push_back("~/" + relative + ": left as it is: it " + why);
  }

  void commit(const std::string& relative, const std::optional<std::string>& before, const std::string& after,
              const std::string& what, bool remove) {
    if (before && *before == after && !remove) return say(relative, "");
    const std::string path = at(relative);
    // Uninstall giving back what the .bak holds: the file is as it was, and the .bak goes too.
    const auto kept = readFile(path + ".bak");
    const bool restoring = action_ == SetupAction::uninstall && kept && *kept == after;
    const std::string said = what + (remove ? ", and removed the file install made" : "");
    if (dryRun_) return say(relative, said);
    if (before && !remove && !restoring && !kept)
      if (auto problem = writeFile(path + ".bak", *before)) return refuse(relative, "could not be kept: " + *problem);
    if (remove) {
      if (::unlink(path.c_str()) != 0) return refuse(relative, base::systemError("could not be removed"));
    } else if (auto problem = writeFile(path, after)) {
      return refuse(relative, "could not be written: " + *problem);
    }
    if (restoring) ::unlink((path + ".bak").c_str());
    say(relative, said);
  }

  const SetupPaths& paths_;
  const SetupAction action_;
  const bool dryRun_;
  SetupReport& report_;
};

// A named entry of an object: set to `value` ("added"/"updated", "" when already so).
std::string putEntry(Json& document, const std::string& table, const std::string& key, const Json& value) {
  if (!document.contains(table) || !document[table].is_object()) document[table] = Json::object();
  Json& entries = document[table];
  if (entries.contains(key) && entries[key] == value) return "";
  const std::string verb = entries.contains(key) ? "updated " : "added ";
  entries[key] = value;
  return verb + table + "." + key;
}

std::string dropEntry(Json& document, const std::string& table, const std::string& key) {
  if (!document.contains(table) || !document[table].is_object() || !document[table].contains(key)) return "";
  document[table].erase(key);
  if (document[table].empty()) document.erase(table);
  return "removed " + table + "." + key;
}

// Claude Code's and Codex's hook shape: hooks.<event> is a list of groups, each with the commands
// it runs. Quillon's group for the event is the one whose commands are all quillon-hook's.
std::string putHookGroup(Json& document, const std::string& event, const Json& group) {
  if (!document.contains("hooks") || !document["hooks"].is_object()) document["hooks"] = Json::object();
  Json& events = document["hooks"];
  if (!events.contains(event) || !events[event].is_array()) events[event] = Json::array();
  for (auto& existing : events[event]) {
    if (!existing.is_object() || !existing.contains("hooks") || !existing["hooks"].is_array()) continue;
    bool ours = !existing["hooks"].empty();
    for (const auto& entry : existing["hooks"]) ours = ours && isOurs(entry);
    if (!ours) continue;
    if (existing == group) return "";
    existing = group;
    return "updated the " + event + " hook";
  }
  events[event].push_back(group);
  return "added the " + event + " hook";
}

// Removes every quillon-hook command, and the groups, events and hooks table left empty by that.
std::string dropHooks(Json& document) {
  if (!document.contains("hooks") || !document["hooks"].is_object()) return "";
  std::string removed;
  Json& events = document["hooks"];
  for (auto event = events.begin(); event != events.end();) {
    if (!event->is_array()) {
      ++event;
      continue;
    }
    bool changed = false;
    Json kept = Json::array();
    for (auto& item : *event) {
      if (isOurs(item)) {  // Cursor's shape: the commands are the items
        changed = true;
        continue;
      }
      if (item.is_object() && item.contains("hooks") && item["hooks"].is_array()) {
        Json commands = Json::array();
        for (const auto& entry : item["hooks"])
          if (!isOurs(entry)) commands.push_back(entry);
        if (commands.size() != item["hooks"].size()) {
          changed = true;
          if (commands.empty()) continue;
          item["hooks"] = commands;
        }
      }
      kept.push_back(item);
    }
    if (changed) removed += (removed.empty() ? "removed the " : ", the ") + event.key() + " hook";
    if (changed && kept.empty()) {
      event = events.erase(event);
      continue;
    }
    if (changed) *event = kept;
    ++event;
  }
  if (events.empty()) document.erase("hooks");
  return removed;
}

std::string joined(const std::string& first, const std::string& second) {
  return first.empty() ? second : second.empty() ? first : first + ", " + second;
}

Json commandHook(const std::string& command, int timeout) {
  return Json{{"type", "command"}, {"command", command}, {"timeout", timeout}};
}

void claude(Files& files, SetupAction action, const SetupPaths& paths) {
  if (action == SetupAction::install) {
    files.note("Claude Code rewrites ~/.claude.json while it runs: if the quillon server goes missing, close Claude "
               "Code and install again.");
    files.editJson(".claude.json", [&](Json& document) {
      return putEntry(document, "mcpServers", "quillon",
                      Json{{"type", "stdio"}, {"command", paths.bridge}, {"args", Json::array()}, {"env", Json::object()}});
    });
    files.editJson(".claude/settings.json", [&](Json& document) {
      std::string what = putHookGroup(document, "UserPromptSubmit",
                                      Json{{"hooks", Json::array({commandHook(hookCommand(paths.hook, "prompt", "claude"), 5)})}});
      const std::string start = putHookGroup(
          document, "SessionStart",
          Json{{"matcher", "startup|resume|clear|compact"},
               {"hooks", Json::array({commandHook(hookCommand(paths.hook, "session-start", "claude"), 10)})}});
      return joined(what, start);
    });
  } else {
    files.editJson(".claude.json", [](Json& document) { return dropEntry(document, "mcpServers", "quillon"); });
    files.editJson(".claude/settings.json", dropHooks);
  }
}

void codex(Files& files, SetupAction action, const SetupPaths& paths) {
  if (action == SetupAction::install) {
    files.editToml(".codex/config.toml",
                   [&](const std::string& text) { return withQuillonServer(text, paths.bridge); });
    files.editJson(".codex/hooks.json", [&](Json& document) {
      std::string what = putHookGroup(document, "UserPromptSubmit",
                                      Json{{"hooks", Json::array({commandHook(hookCommand(paths.hook, "prompt", "codex"), 5)})}});
      const std::string start = putHookGroup(
          document, "SessionStart",
          Json{{"hooks", Json::array({commandHook(hookCommand(paths.hook, "session-start", "codex"), 10)})}});
      return joined(what, start);
    });
    files.note("Codex runs a new hook only once you have reviewed and trusted it in Codex; it asks at its next start.");
  } else {
    files.editToml(".codex/config.toml", withoutQuillonServer);
    files.editJson(".codex/hooks.json", dropHooks);
  }
}

void cursor(Files& files, SetupAction action, const SetupPaths& paths) {
  if (action == SetupAction::install) {
    files.editJson(".cursor/mcp.json", [&](Json& document) {
      return putEntry(document, "mcpServers", "quillon", Json{{"command", paths.bridge}});
    });
    // Cursor's prompt hook cannot add to the model's context; its session start can.
    files.editJson(".cursor/hooks.json", [&](Json& document) {
      if (!document.contains("version")) document["version"] = 1;
      if (!document.contains("hooks") || !document["hooks"].is_object()) document["hooks"] = Json::object();
      Json& starts = document["hooks"]["sessionStart"];
      if (!starts.is_array()) starts = Json::array();
      const Json ours{{"command", hookCommand(paths.hook, "session-start", "cursor")}};
      for (auto& entry : starts) {
        if (!isOurs(entry)) continue;
        if (entry == ours) return std::string();
        entry = ours;
        return std::string("updated the sessionStart hook");
      }
      starts.push_back(ours);
      return std::string("added the sessionStart hook");
    });
  } else {
    files.editJson(".cursor/mcp.json", [](Json& document) { return dropEntry(document, "mcpServers", "quillon"); });
    files.editJson(".cursor/hooks.json", [](Json& document) {
      std::string what = dropHooks(document);
      // The version install wrote goes with the last hook.
      if (!what.empty() && document.size() == 1 && document.contains("version")) document.erase("version");
      return what;
    });
  }
}

void opencode(Files& files, SetupAction action, const SetupPaths& paths) {
  if (action == SetupAction::install) {
    files.editJson(".config/opencode/opencode.json", [&](Json& document) {
      return putEntry(document, "mcp", "quillon",
                      Json{{"type", "local"}, {"command", Json::array({paths.bridge})}, {"enabled", true}});
    });
  } else {
    files.editJson(".config/opencode/opencode.json", [](Json& document) { return dropEntry(document, "mcp", "quillon"); });
  }
}

}  // namespace

const std::vector<std::string>& knownAgents() {
  static const std::vector<std::string> agents{"claude", "codex", "cursor", "opencode"};
  return agents;
}

std::string hookCommand(const std::string& hookPath, const std::string& lane, const std::string& agent) {
  return shellQuoted(hookPath) + " " + lane + " --agent " + agent;
}

SetupReport setUp(SetupAction action, const std::vector<std::string>& agents, const SetupPaths& paths, bool dryRun) {
  SetupReport report;
  Files files(paths, action, dryRun, report);
  for (const auto& agent : agents) {
    if (agent == "claude") claude(files, action, paths);
    if (agent == "codex") codex(files, action, paths);
    if (agent == "cursor") cursor(files, action, paths);
    if (agent == "opencode") opencode(files, action, paths);
  }
  return report;
}

}  // namespace quillon::hook
