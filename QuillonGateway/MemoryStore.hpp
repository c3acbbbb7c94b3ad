// MemoryStore: the development gateway's store, one SQLite file in WAL mode.
//
// It holds the memories (notes) with their filters, the folder→scope map, each session's declared
// scope, the user's own names, and the recall indexes over the memories' words (kept in step by
// every insert, update and remove). Memory ids are SQLite's AUTOINCREMENT row ids, so a number is
// never handed out twice, not even after the newest memory is deleted. Opening the file brings its
// schema up to kSchemaVersion by running the missing migrations in order, in one transaction.
//
// Durability: every write commits before its caller answers. WAL with synchronous=NORMAL keeps
// every committed transaction through a crash of the process (kill -9 included); only a power cut
// may roll back the last few, and the file still opens cleanly after either.
//
// One MemoryStore is one SQLite connection: not thread-safe. Each serving thread opens its own on
// the same file; SQLite serialises their writes and lets reads run alongside. Calls throw SqlError
// when SQLite fails; StoreGateway turns that into a `failure` answer.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillonWire/AnswerRecords.hpp"

namespace quillon::gateway {

class Database;
class WriteTransaction;

struct Memory {
  std::int64_t id = 0;
  std::string type;
  std::string scope;
  std::string text;
  std::string why;
  std::optional<std::string> title;
  std::string writer;
  std::optional<std::string> session;
  std::optional<std::string> subagent;
  double created = 0;               // seconds since the epoch
  std::optional<double> edited;     // set by every change after the first write
  std::vector<wire::FilterPair> filters;  // sorted by key
};

struct ScopeCounts {
  std::string scope;
  std::int64_t rules = 0;
  std::int64_t notes = 0;  // every memory that is not a rule
};

struct FolderScope {
  std::string folder;
  std::string scope;
};

class MemoryStore {
 public:
  static constexpr int kSchemaVersion = 5;
  // How long the answer to a door token is kept: far longer than any retry takes.
  static constexpr double kTokenSeconds = 60 * 60;

  // Told a line at each step of a long migration, for the log.
  using Progress = std::function<void(std::string_view line)>;

  // Opens or creates the store at `path`, migrating it. Throws SqlError.
  explicit MemoryStore(const std::string& path, const Progress& progress = {});
  ~MemoryStore();
  MemoryStore(const MemoryStore&) = delete;
  MemoryStore& operator=(const MemoryStore&) = delete;

  // Ends every read left open, so the next call sees the latest committed state.
  void settle();

  // The schema version the file now carries.
  int schemaVersion();

  // A write lock held until commit (or rolled back when dropped); the changes below are meant to
  // run inside one.
  std::unique_ptr<WriteTransaction> beginWrite();

  // The memory's new id. `memory.id` is ignored; `edited` is kept when set (an import's).
  std::int64_t insert(const Memory& memory);
  // Rewrites every field and the filters of the memory with this id.
  void update(const Memory& memory);
  // False when no memory has this id.
  bool remove(std::int64_t id);
  std::optional<Memory> find(std::int64_t id);

  // Whether any memory is filed at exactly this scope, or a folder is mapped to it.
  bool scopeLives(std::string_view scope);

  // The memories of `type` filed at `scopePrefix` or below ("/" is everything) whose filters hold
  // every pair of `equal`, newest first, at most `limit`.
  std::vector<Memory> byType(std::string_view type, std::string_view scopePrefix,
                             const std::vector<wire::FilterPair>& equal, std::size_t limit);
  // Each type under `scopePrefix` with its count and its filter keys' counts, most used first.
  std::vector<wire::KindCount> typeCounts(std::string_view scopePrefix);
  // The ids of the memories carrying the filter `key` = `value` (a string value), oldest first.
  std::vector<std::int64_t> idsWithFilter(std::string_view key, std::string_view value);
  // Every scope that holds a memory or has a folder mapped to it, by path.
  std::vector<ScopeCounts> scopeCounts();

  // The texts of the rules filed at exactly `scope`, oldest first.
  std::vector<std::string> rulesAt(std::string_view scope);
  // How many rules are filed strictly below `scope`.
  std::int64_t rulesBelow(std::string_view scope);

  // The scope of the deepest mapped folder that holds `folder` (or is it), if any.
  std::optional<std::string> scopeForFolder(std::string_view folder);
  // The scope the folder was mapped to before, if any.
  std::optional<std::string> mapFolder(std::string_view folder, std::string_view scope);
  std::vector<FolderScope> folders();

  // The scope `session` declared at or after `since`, if any.
  std::optional<std::string> sessionScope(std::string_view session, double since);
  void setSessionScope(std::string_view session, std::string_view scope, double at);

  // The answer kept for `token` within the last kTokenSeconds, if any.
  std::optional<std::string> keptAnswer(std::string_view token, double now);
  // Keeps `answer` for `token`, and forgets the answers older than kTokenSeconds.
  void keepAnswer(std::string_view token, std::string_view answer, double now);

  // The prompts counted for `session` so far.
  std::int64_t promptsOf(std::string_view session);

  std::vector<std::string> selfNames();
  void setSelfNames(const std::vector<std::string>& names);

  // The connection, for the reads that live beside the store (recall).
  Database& database() { return *database_; }

 private:
  void migrate(const Progress& progress);
  void fillRecallIndexes(const Progress& progress);
  // Every change to a memory leaves the recall indexes in step within its own transaction: the
  // old words out before the change, the new ones in after.
  void indexForRecall(std::int64_t id);
  void unindexForRecall(std::int64_t id);
  std::vector<wire::FilterPair> filtersOf(std::int64_t id);
  void writeFilters(std::int64_t id, const std::vector<wire::FilterPair>& filters);

  std::unique_ptr<Database> database_;
};

}  // namespace quillon::gateway
