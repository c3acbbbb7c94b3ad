#include "QuillonHook/CodexConfig.hpp"

#include <toml++/toml.h>

#include <cstdio>
#include <sstream>
#include <vector>

namespace quillon::hook {

namespace {

constexpr std::string_view kHeader = "[mcp_servers.quillon]";

// A TOML basic string.
std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(static_cast<unsigned char>(c)));
      out += escape;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string block(const std::string& bridge) {
  return std::string(kHeader) + "\ncommand = " + quoted(bridge) + "\nargs = []\n";
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string joinLines(const std::vector<std::string>& lines, bool finalNewline) {
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) text += lines[i] + (i + 1 < lines.size() || finalNewline ? "\n" : "");
  return text;
}

std::string trimmed(std::string_view line) {
  const auto first = line.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return std::string(line.substr(first, line.find_last_not_of(" \t\r") - first + 1));
}

// "[ mcp_servers . quillon ]" → "[mcp_servers.quillon]": the header without its blanks, or the line
// unchanged when it holds a comment or quotes (then it is not ours to match).
std::string header(std::string_view line) {
  std::string compact;
  for (const char c : trimmed(line)) {
    if (c == '#' || c == '"' || c == '\'') return std::string(line);
    if (c != ' ' && c != '\t') compact += c;
  }
  return compact;
}

// The lines (0-based, end excluded) that define the quillon table and its sub-tables: from its
// header to the next table's header, without the blank lines before that. Nothing when the table
// is written another way (inline, or by dotted keys) than this tool edits.
std::optional<std::pair<std::size_t, std::size_t>> tableLines(const std::vector<std::string>& lines) {
  std::optional<std::size_t> begin;
  for (std::size_t i = 0; i < lines.size() && !begin; ++i)
    if (header(lines[i]) == kHeader) begin = i;
  if (!begin) return std::nullopt;
  std::size_t end = *begin + 1;
  for (; end < lines.size(); ++end) {
    const std::string line = header(lines[end]);
    if (line.starts_with('[') && !line.starts_with("[mcp_servers.quillon.")) break;
  }
  while (end > *begin + 1 && trimmed(lines[end - 1]).empty()) --end;
  return std::make_pair(*begin, end);
}

std::optional<toml::table> parsed(const std::string& text, std::string& problem) {
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& error) {
    problem = "does not parse as TOML (" + std::string(error.description()) + ", line " +
              std::to_string(error.source().begin.line) + ")";
    return std::nullopt;
  }
}

}  // namespace

TomlChange withQuillonServer(const std::string& text, const std::string& bridge) {
  TomlChange change;
  auto document = parsed(text, change.problem);
  if (!document) return change;
  const auto existing = (*document)["mcp_servers"]["quillon"];
  if (!existing) {
    std::string updated = text;
    if (!updated.empty() && updated.back() != '\n') updated += '\n';
    if (!updated.empty()) updated += '\n';
    change.text = updated + block(bridge);
    change.what = "added " + std::string(kHeader);
    return change;
  }
  const auto* args = existing["args"].as_array();
  if (existing["command"].value<std::string>() == bridge && (args == nullptr || args->empty())) return change;
  auto lines = splitLines(text);
  const auto range = tableLines(lines);
  if (!range) {
    change.problem = "defines mcp_servers.quillon in a form this tool does not rewrite; set its command to " +
                     quoted(bridge) + " by hand";
    return change;
  }
  const auto replacement = splitLines(block(bridge));
  lines.erase(lines.begin() + static_cast<long>(range->first), lines.begin() + static_cast<long>(range->second));
  lines.insert(lines.begin() + static_cast<long>(range->first), replacement.begin(), replacement.end());
  change.text = joinLines(lines, true);
  change.what = "updated " + std::string(kHeader);
  return change;
}

TomlChange withoutQuillonServer(const std::string& text) {
  TomlChange change;
  auto document = parsed(text, change.problem);
  if (!document || !(*document)["mcp_servers"]["quillon"]) return change;
  auto lines = splitLines(text);
  auto range = tableLines(lines);
  if (!range) {
    change.problem = "defines mcp_servers.quillon in a form this tool does not remove; remove it by hand";
    return change;
  }
  // The blank line that install put before the table goes with it.
  if (range->first > 0 && trimmed(lines[range->first - 1]).empty()) --range->first;
  lines.erase(lines.begin() + static_cast<long>(range->first), lines.begin() + static_cast<long>(range->second));
  const bool finalNewline = !text.empty() && text.back() == '\n';
  change.text = lines.empty() ? std::string() : joinLines(lines, finalNewline);
  change.what = "removed " + std::string(kHeader);
  return change;
}

}  // namespace quillon::hook
