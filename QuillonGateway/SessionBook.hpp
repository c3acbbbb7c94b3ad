// SessionBook: the agent sessions the gateway has seen, and how recall rode in them.
//
// A session is recorded from every request that names one: its agent, when it was first and last
// seen, its folder and transcript as the agent last gave them, the prompts its hook sent, and a
// title (the first prompt's first line). Sessions not seen for kForgetSeconds are forgotten. Recall
// keeps counts only: each prompt with how many cards it got, each card shown (by memory id) and
// each shown card opened later in the same session; never a card's words.
//
// One SessionBook per store connection, over the store's own database; not thread-safe. Calls
// throw SqlError when SQLite fails.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::gateway {

class Database;

struct SessionRecord {
  std::string id;
  std::optional<std::string> writer;
  double first = 0;
  double last = 0;
  std::optional<std::string> cwd;
  std::optional<std::string> transcript;
  std::int64_t prompts = 0;
  std::optional<std::string> title;
};

// What one request says about its session; absent fields leave what was recorded.
struct SessionSighting {
  std::string_view id;
  std::optional<std::string_view> writer;
  std::optional<std::string_view> cwd;
  std::optional<std::string_view> transcript;
};

// Recall's counts over a span, for recall_stats.
struct RecallTally {
  struct Count {
    std::string name;
    std::int64_t count = 0;
  };
  struct Day {
    std::string day;  // local calendar day
    std::int64_t prompts = 0, primed = 0, cards = 0;
  };
  std::int64_t prompts = 0;      // prompts a hook sent
  std::int64_t primed = 0;       // of those, the ones that got at least one card
  std::int64_t cards = 0;        // cards shown
  std::int64_t memories = 0;     // distinct memories among them
  std::int64_t rode = 0;         // distinct (session, memory) pairs shown
  std::int64_t opened = 0;       // of those, opened by the main conversation
  std::int64_t openedBySubagents = 0;
  std::int64_t shortcuts = 0;    // prompts that fired a shortcut
  std::optional<double> firstPrompt;
  std::vector<Count> mostShown;  // "m:12", most shown first, at most 5
  std::vector<Count> scopes;     // scopes asked from, most prompts first, at most 5
  std::vector<Day> days;         // oldest first, only days with prompts
};

class SessionBook {
 public:
  static constexpr double kForgetSeconds = 90 * 24 * 60 * 60;
  // A title is the first prompt's first line, at most this many characters.
  static constexpr std::size_t kTitleCharacters = 80;

  explicit SessionBook(Database& database) : database_(database) {}

  // Whether `id` can name a session: 1 to 40 ASCII letters, digits, "_" or "-", and not one of
  // the words agents use for "no session" ("main", "unknown").
  static bool isSessionID(std::string_view id);

  // Records the sighting at `now`. A new session makes the book forget the sessions last seen
  // more than kForgetSeconds ago.
  void sight(const SessionSighting& sighting, double now);
  // Counts one prompt of the session; the first that reads as a request titles it.
  void countPrompt(std::string_view id, std::string_view prompt, double now);
  std::optional<SessionRecord> find(std::string_view id);
  // The sessions last seen at or after `since`, most recently active first, at most `limit`.
  std::vector<SessionRecord> activeSince(double since, std::size_t limit);
  // The ids of the memories written in the session, newest first, at most `limit`, and how many
  // there are in all.
  std::pair<std::vector<std::int64_t>, std::int64_t> memoriesWritten(std::string_view id, std::size_t limit);

  // One prompt of the session, asked from `scope`: the memories its cards showed and whether it
  // fired a shortcut.
  void notePrompt(std::string_view session, std::string_view scope, const std::vector<std::int64_t>& shown,
                  bool shortcut, double now);
  // A grab of a memory in the session: an opening when the memory rode there before.
  void noteGrab(std::string_view session, bool bySubagent, std::int64_t memory, double now);
  // Recall's counts from `since` on (everything when absent).
  RecallTally tally(std::optional<double> since);

 private:
  Database& database_;
};

}  // namespace quillon::gateway
