#include "QuillonGateway/Transcripts.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <linux/magic.h>
#include <sys/vfs.h>
#endif

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>

#include "QuillonBase/Fd.hpp"
#include "QuillonBase/Text.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

using nlohmann::json;

// What the card quotes of the last exchange: the user's line, and the reply's first sentences.
constexpr std::size_t kUserCharacters = 200;
constexpr std::size_t kReplyCharacters = 240;
constexpr int kReplySentences = 2;

// Claude Code's tools that change a file, each naming it in its input.
constexpr std::array<std::string_view, 4> kClaudeEdits = {"Edit", "MultiEdit", "Write", "NotebookEdit"};
// The lines of Codex's patches that name a file the patch writes.
constexpr std::array<std::string_view, 3> kPatchMarkers = {"*** Update File: ", "*** Add File: ", "*** Move to: "};

std::string stringAt(const json& object, const char* key) {
  const auto at = object.find(key);
  return at != object.end() && at->is_string() ? at->get<std::string>() : std::string();
}

// The first sentences of a reply, on one line, cut with "…" past the limit.
std::string firstSentences(std::string_view text) {
  std::size_t end = 0;
  for (int sentence = 0; sentence < kReplySentences && end < text.size(); ++sentence) {
    std::size_t at = end;
    while (at < text.size()) {
      const char c = text[at++];
      if ((c == '.' || c == '!' || c == '?') && (at == text.size() || text[at] == ' ' || text[at] == '\n')) break;
      if (c == '\n' && at < text.size() && text[at] == '\n') break;  // a paragraph ends a sentence too
    }
    end = at;
  }
  return clipped(text.substr(0, end), kReplyCharacters);
}

// A line a person typed, as opposed to what the agent put in the user's turn on its own: tool
// results, the environment and instructions it hands the model, which open with a tag.
bool typedByPerson(std::string_view text) {
  const std::string line(base::trimmed(text));
  return !line.empty() && line.front() != '<';
}

class GistReader {
 public:
  void line(std::string_view text) {
    const json event = json::parse(text, nullptr, false);
    if (!event.is_object()) return;
    const std::string type = stringAt(event, "type");
    if (const auto message = event.find("message"); message != event.end() && message->is_object()) {
      if (type == "user" && !event.value("isMeta", false)) claudeUser(*message);
      if (type == "assistant") claudeAssistant(*message);
      return;
    }
    const auto payload = event.find("payload");
    if (payload == event.end() || !payload->is_object()) return;
    if (type == "response_item") codexItem(*payload);
    if (type == "event_msg") codexEvent(*payload);
  }

  TranscriptGist gist() && {
    TranscriptGist gist;
    std::set<std::string_view> seen;
    for (auto file = files_.rbegin(); file != files_.rend(); ++file)
      if (seen.insert(*file).second) gist.files.push_back(*file);
    if (!user_.empty()) {
      gist.tail.push_back("You: " + clipped(user_, kUserCharacters));
      if (!reply_.empty()) gist.tail.push_back(agent_ + ": " + firstSentences(reply_));
    }
    return gist;
  }

 private:
  void said(std::string text) {
    if (!typedByPerson(text)) return;
    user_ = std::move(text);
    reply_.clear();
  }
  void answered(std::string_view agent, std::string text) {
    agent_ = agent;
    if (!user_.empty() && reply_.empty() && !base::trimmed(text).empty()) reply_ = std::move(text);
  }

  void claudeUser(const json& message) {
    const auto content = message.find("content");
    if (content == message.end()) return;
    if (content->is_string()) return said(content->get<std::string>());
    if (!content->is_array()) return;
    std::string text;
    for (const auto& block : *content) {
      if (!block.is_object()) continue;
      if (stringAt(block, "type") == "tool_result") return;  // the agent's own turn, not the person's
      if (stringAt(block, "type") == "text") text += stringAt(block, "text");
    }
    said(std::move(text));
  }

  void claudeAssistant(const json& message) {
    const auto content = message.find("content");
    if (content == message.end() || !content->is_array()) return;
    for (const auto& block : *content) {
      if (!block.is_object()) continue;
      const std::string type = stringAt(block, "type");
      if (type == "text") answered("Claude", stringAt(block, "text"));
      if (type != "tool_use") continue;
      const std::string name = stringAt(block, "name");
      const auto input = block.find("input");
      if (std::find(kClaudeEdits.begin(), kClaudeEdits.end(), name) == kClaudeEdits.end() || input == block.end() ||
          !input->is_object())
        continue;
      std::string file = stringAt(*input, "file_path");
      if (file.empty()) file = stringAt(*input, "notebook_path");
      if (!file.empty()) files_.push_back(std::move(file));
    }
  }

  void codexItem(const json& payload) {
    const std::string type = stringAt(payload, "type");
    if (type == "message") {
      const std::string role = stringAt(payload, "role");
      std::string text;
      if (const auto content = payload.find("content"); content != payload.end() && content->is_array())
        for (const auto& block : *content)
          if (block.is_object()) text += stringAt(block, "text");
      if (role == "user") said(std::move(text));
      if (role == "assistant") answered("Codex", std::move(text));
    } else if (type == "function_call" || type == "custom_tool_call") {
      // A patch travels as a JSON string inside the call's arguments, or as the custom call's input.
      const std::string carried = type == "function_call" ? stringAt(payload, "arguments") : stringAt(payload, "input");
      const json arguments = json::parse(carried, nullptr, false);
      if (arguments.is_discarded())
        patchedFiles(carried);
      else
        everyString(arguments);
    }
  }

  void codexEvent(const json& payload) {
    const std::string type = stringAt(payload, "type");
    if (type == "user_message") said(stringAt(payload, "message"));
    if (type == "agent_message") answered("Codex", stringAt(payload, "message"));
  }

  void everyString(const json& value) {
    if (value.is_string()) return patchedFiles(value.get_ref<const std::string&>());
    if (value.is_structured())
      for (const auto& item : value) everyString(item);
  }

  void patchedFiles(std::string_view patch) {
    for (std::size_t start = 0; start < patch.size();) {
      const std::size_t end = std::min(patch.find('\n', start), patch.size());
      const std::string_view line = patch.substr(start, end - start);
      for (const auto marker : kPatchMarkers)
        if (line.starts_with(marker)) {
          if (std::string file(base::trimmed(line.substr(marker.size()))); !file.empty()) files_.push_back(std::move(file));
        }
      start = end + 1;
    }
  }

  std::vector<std::string> files_;
  std::string user_, reply_, agent_;
};

// Whether the open file is one a transcript can be: a regular file of ours, outside the kernel's
// own file systems (whose files claim any size and may change as they are read).
bool readable(int fd, off_t& size) {
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) return false;
#ifdef __linux__
  struct statfs system {};
  if (::fstatfs(fd, &system) != 0 || system.f_type == PROC_SUPER_MAGIC || system.f_type == SYSFS_MAGIC) return false;
#endif
  size = status.st_size;
  return true;
}

}  // namespace

TranscriptGist transcriptGist(std::string_view lines) {
  GistReader reader;
  for (std::size_t start = 0; start < lines.size();) {
    const std::size_t end = std::min(lines.find('\n', start), lines.size());
    if (end > start) reader.line(lines.substr(start, end - start));
    start = end + 1;
  }
  return std::move(reader).gist();
}

std::optional<TranscriptGist> readTranscript(const std::string& path) {
  if (path.empty() || path.front() != '/') return std::nullopt;
  const base::Fd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  off_t size = 0;
  if (file.get() < 0 || !readable(file.get(), size)) return std::nullopt;
  const off_t start = size > static_cast<off_t>(kTailBytes) ? size - static_cast<off_t>(kTailBytes) : 0;
  std::string tail(static_cast<std::size_t>(size - start), '\0');
  std::size_t got = 0;
  while (got < tail.size()) {
    const ssize_t read = ::pread(file.get(), tail.data() + got, tail.size() - got, start + static_cast<off_t>(got));
    if (read < 0 && errno == EINTR) continue;
    if (read <= 0) break;
    got += static_cast<std::size_t>(read);
  }
  tail.resize(got);
  // Read from the middle of the file, the first line is the end of one we did not read.
  std::string_view lines = tail;
  if (start > 0) lines.remove_prefix(std::min(lines.find('\n'), lines.size()));
  return transcriptGist(lines);
}

}  // namespace quillon::gateway
