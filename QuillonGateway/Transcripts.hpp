// Transcripts: what a session card shows from the agent's own transcript of the session.
//
// Claude Code and Codex keep a session as JSON Lines, one event per line, appended for as long as
// the session runs. The card needs little of it: the files the session edited or wrote (from the
// edit and write tool calls, and the files Codex's patches name) and the last exchange (the last
// line the user typed and the first sentences of the reply). Only the file's last kTailBytes are
// read, whatever its size; a line that is not JSON, or of a shape neither agent writes, is passed
// over. Nothing read is kept.
//
// The file is read only when it is a regular file of the gateway's own user (a link is followed to
// its target, which must be that too), never under /proc or /sys, and never waited on: a fifo is
// not a transcript. Stateless; thread-safe.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace quillon::gateway {

struct TranscriptGist {
  std::vector<std::string> files;  // newest first, each once
  std::vector<std::string> tail;   // "You: …" then the agent's reply, when there was an exchange
};

// How much of a transcript's end is read.
inline constexpr std::size_t kTailBytes = 4 << 20;

// The gist of the transcript at `path`, or nothing when it is not a file that may be read.
std::optional<TranscriptGist> readTranscript(const std::string& path);

// The gist of transcript lines already read (the file's tail, whole lines).
TranscriptGist transcriptGist(std::string_view lines);

}  // namespace quillon::gateway
