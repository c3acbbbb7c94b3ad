#include "QuillonGateway/MemoryStore.hpp"

#include <algorithm>
#include <array>
#include <map>

#include "QuillonGateway/Sqlite.hpp"

namespace quillon::gateway {

namespace {

// Migration i brings the schema from version i to i + 1. Append only: a shipped migration is
// never edited, since stores out there already ran it.
constexpr std::array<std::string_view, MemoryStore::kSchemaVersion> kMigrations = {
    R"(CREATE TABLE memories(
         id INTEGER PRIMARY KEY AUTOINCREMENT,
         type TEXT NOT NULL, scope TEXT NOT NULL, text TEXT NOT NULL, why TEXT NOT NULL, title TEXT,
         writer TEXT NOT NULL, session TEXT, subagent TEXT, created REAL NOT NULL, edited REAL);
       CREATE INDEX memories_by_type ON memories(type, created DESC, id DESC);
       CREATE INDEX memories_by_scope ON memories(scope);
       CREATE TABLE filters(
         memory INTEGER NOT NULL REFERENCES memories(id) ON DELETE CASCADE,
         key TEXT NOT NULL, kind TEXT NOT NULL CHECK(kind IN ('s', 'n', 'b')), value NOT NULL,
         PRIMARY KEY(memory, key)) WITHOUT ROWID;
       CREATE INDEX filters_by_value ON filters(key, kind, value);
       CREATE TABLE folders(folder TEXT PRIMARY KEY, scope TEXT NOT NULL) WITHOUT ROWID;
       CREATE TABLE session_scopes(session TEXT PRIMARY KEY, scope TEXT NOT NULL, declared REAL NOT NULL)
         WITHOUT ROWID;
       CREATE TABLE self_names(position INTEGER PRIMARY KEY, name TEXT NOT NULL);)",
    // A listing narrowed to a scope walks only that type's memories under it.
    "CREATE INDEX memories_by_type_scope ON memories(type, scope);",
    // Recall: the words of every memory (stemmed, folded, accents dropped) and their trigrams
    // (for literal substrings), both read from one view of the memory so that nothing is stored
    // twice. The indexes are filled in code, with progress, after this runs. Ranked by BM25 with
    // the columns weighed: a title names what the memory is about, a why and filters say what it
    // is for, the text says everything else once.
    R"(CREATE VIEW recall_source(id, title, text, why, type, scope, filters) AS
         SELECT m.id, coalesce(m.title, ''), m.text, m.why, m.type, m.scope,
           coalesce((SELECT group_concat(f.key || CASE f.kind
                       WHEN 'b' THEN CASE f.value WHEN 1 THEN '' ELSE ' false' END
                       WHEN 'n' THEN ' ' || CASE WHEN f.value = CAST(f.value AS INTEGER)
                                                 THEN CAST(CAST(f.value AS INTEGER) AS TEXT) ELSE f.value END
                       ELSE ' ' || f.value END, ' ')
                     FROM filters f WHERE f.memory = m.id), '')
         FROM memories m;
       CREATE VIRTUAL TABLE recall_words USING fts5(title, text, why, type, scope, filters,
         content='recall_source', content_rowid='id', tokenize='porter unicode61 remove_diacritics 2');
       INSERT INTO recall_words(recall_words, rank) VALUES('rank', 'bm25(8.0, 1.0, 2.0, 1.5, 1.0, 2.0)');
       CREATE VIRTUAL TABLE recall_grams USING fts5(title, text, why, type, scope, filters,
         content='recall_source', content_rowid='id', tokenize='trigram');
       CREATE TABLE session_prompts(session TEXT PRIMARY KEY, prompts INTEGER NOT NULL, first REAL NOT NULL,
         last REAL NOT NULL) WITHOUT ROWID;)",
    // The answers to the door's tokens: a request retried after a broken connection is answered
    // from here instead of being served twice.
    R"(CREATE TABLE door_tokens(token TEXT PRIMARY KEY, answer TEXT NOT NULL, at REAL NOT NULL) WITHOUT ROWID;
       CREATE INDEX door_tokens_by_age ON door_tokens(at);)",
    // The agent sessions seen (SessionBook): who, where, since when, how many prompts, and the
    // first prompt's first line as a title. The prompt counts kept so far move in. Then how
    // recall rode: one row per prompt a hook sent, one per card shown, one per card opened.
    R"(CREATE TABLE sessions(id TEXT PRIMARY KEY, writer TEXT, first REAL NOT NULL, last REAL NOT NULL,
         cwd TEXT, transcript TEXT, prompts INTEGER NOT NULL DEFAULT 0, title TEXT) WITHOUT ROWID;
       CREATE INDEX sessions_by_last ON sessions(last);
       CREATE INDEX memories_by_session ON memories(session, id) WHERE session IS NOT NULL;
       INSERT INTO sessions(id, first, last, prompts) SELECT session, first, last, prompts FROM session_prompts;
       DROP TABLE session_prompts;
       CREATE TABLE recall_prompts(at REAL NOT NULL, session TEXT NOT NULL, scope TEXT NOT NULL,
         cards INTEGER NOT NULL, shortcut INTEGER NOT NULL);
       CREATE INDEX recall_prompts_by_at ON recall_prompts(at);
       CREATE TABLE recall_shown(at REAL NOT NULL, session TEXT NOT NULL, memory INTEGER NOT NULL);
       CREATE INDEX recall_shown_by_at ON recall_shown(at);
       CREATE INDEX recall_shown_by_session ON recall_shown(session, memory);
       CREATE TABLE recall_opened(session TEXT NOT NULL, memory INTEGER NOT NULL, subagent INTEGER NOT NULL,
         at REAL NOT NULL, PRIMARY KEY(session, memory, subagent)) WITHOUT ROWID;)",
};

// The migration after which the recall indexes are filled from the memories already stored.
constexpr int kRecallMigration = 2;
// How many memories one step of that fill indexes, and so how often it reports.
constexpr std::int64_t kFillStep = 10000;

constexpr std::array<std::string_view, 2> kRecallIndexes = {"recall_words", "recall_grams"};

// A scope and everything below it, as a range an index serves; the second test drops the
// neighbours the range lets in ("/code-x" beside "/code").
constexpr std::string_view kScopeRange =
    "scope >= ?2 AND scope < ?2 || '0' AND (scope = ?2 OR substr(scope, length(?2) + 1, 1) = '/')";

// A filter matching fewer memories than this, or a scope holding fewer of the type, finds a
// listing's candidates faster than a walk of the type in date order, which may pass many rows that
// fail the filters. Counting up to the bound costs at most that many index steps; sorting what
// is found stays within a few milliseconds.
constexpr std::int64_t kRareFilter = 1000;
constexpr std::int64_t kNarrowScope = 4000;

constexpr std::string_view kMemoryColumns =
    "id, type, scope, text, why, title, writer, session, subagent, created, edited";

// Matches a scope (parameter `p`) and everything filed below it; "/" matches all. '0' is the byte
// after '/', so the range holds exactly the paths that continue the prefix with a slash, and the
// scope index serves it.
std::string underScope(std::string_view column, int p) {
  const std::string scope = "?" + std::to_string(p);
  const std::string at(column);
  return "(" + scope + " = '/' OR " + at + " = " + scope + " OR (" + at + " > " + scope + " || '/' AND " + at + " < " +
         scope + " || '0'))";
}

std::optional<std::string> optionalText(const Statement& row, int column) {
  if (row.isNull(column)) return std::nullopt;
  return row.text(column);
}

Memory readMemory(const Statement& row) {
  Memory memory;
  memory.id = row.integer(0);
  memory.type = row.text(1);
  memory.scope = row.text(2);
  memory.text = row.text(3);
  memory.why = row.text(4);
  memory.title = optionalText(row, 5);
  memory.writer = row.text(6);
  memory.session = optionalText(row, 7);
  memory.subagent = optionalText(row, 8);
  memory.created = row.real(9);
  if (!row.isNull(10)) memory.edited = row.real(10);
  return memory;
}

void bindOptional(Statement& statement, int index, const std::optional<std::string>& text) {
  if (text)
    statement.bind(index, *text);
  else
    statement.bindNull(index);
}

// A filter value in two columns: its kind, so that true never equals 1, and the value itself.
void bindFilterValue(Statement& statement, int kindIndex, const wire::FilterValue& value) {
  if (const auto* text = value.asString()) {
    statement.bind(kindIndex, std::string_view("s")).bind(kindIndex + 1, std::string_view(*text));
  } else if (const auto* number = value.asNumber()) {
    statement.bind(kindIndex, std::string_view("n")).bind(kindIndex + 1, *number);
  } else {
    statement.bind(kindIndex, std::string_view("b")).bind(kindIndex + 1, std::int64_t{*value.asBool() ? 1 : 0});
  }
}

wire::FilterValue readFilterValue(const Statement& row, int kindColumn) {
  const std::string kind = row.text(kindColumn);
  if (kind == "n") return wire::FilterValue::number(row.real(kindColumn + 1));
  if (kind == "b") return wire::FilterValue::boolean(row.integer(kindColumn + 1) != 0);
  return wire::FilterValue::string(row.text(kindColumn + 1));
}

}  // namespace

MemoryStore::MemoryStore(const std::string& path, const Progress& progress)
    : database_(std::make_unique<Database>(path)) {
  database_->exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON;");
  migrate(progress);
}

MemoryStore::~MemoryStore() = default;

void MemoryStore::settle() { database_->settle(); }

int MemoryStore::schemaVersion() {
  auto& statement = database_->cached("PRAGMA user_version");
  statement.step();
  const int version = static_cast<int>(statement.integer(0));
  statement.reset();
  return version;
}

void MemoryStore::migrate(const Progress& progress) {
  if (schemaVersion() == kSchemaVersion) return;
  WriteTransaction transaction(*database_);
  // Read again under the write lock: another gateway thread may have just migrated.
  const int version = schemaVersion();
  if (version > kSchemaVersion)
    throw SqlError("the store has schema version " + std::to_string(version) + ", newer than this gateway's " +
                   std::to_string(kSchemaVersion) + "; run the newer gateway");
  for (int next = version; next < kSchemaVersion; ++next) {
    database_->exec(kMigrations[static_cast<std::size_t>(next)]);
    if (next == kRecallMigration) fillRecallIndexes(progress);
  }
  database_->exec("PRAGMA user_version = " + std::to_string(kSchemaVersion));
  transaction.commit();
}

void MemoryStore::fillRecallIndexes(const Progress& progress) {
  auto& count = database_->cached("SELECT COUNT(*) FROM memories");
  count.step();
  const std::int64_t total = count.integer(0);
  count.reset();
  if (total == 0) return;
  if (progress) progress("indexing " + std::to_string(total) + " memories for recall");
  std::int64_t done = 0, after = 0;
  while (done < total) {
    // One step: the next memories by id, into both indexes; `after` is where the next one starts.
    auto& step = database_->cached(
        "SELECT max(id), COUNT(*) FROM (SELECT id FROM memories WHERE id > ?1 ORDER BY id LIMIT ?2)");
    step.bind(1, after).bind(2, kFillStep);
    step.step();
    if (step.isNull(0)) break;
    const std::int64_t upTo = step.integer(0);
    done += step.integer(1);
    step.reset();
    for (const auto index : kRecallIndexes)
      database_->exec("INSERT INTO " + std::string(index) +
                      "(rowid, title, text, why, type, scope, filters) SELECT * FROM recall_source WHERE id > " +
                      std::to_string(after) + " AND id <= " + std::to_string(upTo));
    after = upTo;
    if (progress) progress("indexed " + std::to_string(done) + " of " + std::to_string(total) + " memories");
  }
}

void MemoryStore::indexForRecall(std::int64_t id) {
  for (const auto index : kRecallIndexes)
    database_->cached("INSERT INTO " + std::string(index) +
                      "(rowid, title, text, why, type, scope, filters) SELECT * FROM recall_source WHERE id = ?1")
        .bind(1, id)
        .step();
}

void MemoryStore::unindexForRecall(std::int64_t id) {
  // The index keeps no copy of the text: it is told the words it holds for the memory, read back
  // from the same view before the memory changes.
  for (const auto index : kRecallIndexes)
    database_->cached("INSERT INTO " + std::string(index) + "(" + std::string(index) +
                      ", rowid, title, text, why, type, scope, filters) SELECT 'delete', * FROM recall_source "
                      "WHERE id = ?1")
        .bind(1, id)
        .step();
}

std::unique_ptr<WriteTransaction> MemoryStore::beginWrite() {
  database_->settle();
  return std::make_unique<WriteTransaction>(*database_);
}

std::int64_t MemoryStore::insert(const Memory& memory) {
  auto& statement = database_->cached(
      "INSERT INTO memories(type, scope, text, why, title, writer, session, subagent, created, edited) "
      "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)");
  statement.bind(1, memory.type).bind(2, memory.scope).bind(3, memory.text).bind(4, memory.why);
  bindOptional(statement, 5, memory.title);
  statement.bind(6, memory.writer);
  bindOptional(statement, 7, memory.session);
  bindOptional(statement, 8, memory.subagent);
  statement.bind(9, memory.created);
  if (memory.edited)
    statement.bind(10, *memory.edited);
  else
    statement.bindNull(10);
  statement.step();
  const std::int64_t id = database_->lastInsertId();
  writeFilters(id, memory.filters);
  indexForRecall(id);
  return id;
}

void MemoryStore::update(const Memory& memory) {
  unindexForRecall(memory.id);
  auto& statement = database_->cached(
      "UPDATE memories SET type = ?2, scope = ?3, text = ?4, why = ?5, title = ?6, edited = ?7 WHERE id = ?1");
  statement.bind(1, memory.id).bind(2, memory.type).bind(3, memory.scope).bind(4, memory.text).bind(5, memory.why);
  bindOptional(statement, 6, memory.title);
  if (memory.edited)
    statement.bind(7, *memory.edited);
  else
    statement.bindNull(7);
  statement.step();
  database_->cached("DELETE FROM filters WHERE memory = ?1").bind(1, memory.id).step();
  writeFilters(memory.id, memory.filters);
  indexForRecall(memory.id);
}

bool MemoryStore::remove(std::int64_t id) {
  unindexForRecall(id);
  database_->cached("DELETE FROM filters WHERE memory = ?1").bind(1, id).step();
  database_->cached("DELETE FROM memories WHERE id = ?1").bind(1, id).step();
  return database_->changes() > 0;
}

std::optional<Memory> MemoryStore::find(std::int64_t id) {
  auto& statement = database_->cached("SELECT " + std::string(kMemoryColumns) + " FROM memories WHERE id = ?1");
  statement.bind(1, id);
  if (!statement.step()) return std::nullopt;
  Memory memory = readMemory(statement);
  statement.reset();
  memory.filters = filtersOf(id);
  return memory;
}

bool MemoryStore::scopeLives(std::string_view scope) {
  auto& statement = database_->cached(
      "SELECT EXISTS(SELECT 1 FROM memories WHERE scope = ?1) OR EXISTS(SELECT 1 FROM folders WHERE scope = ?1)");
  statement.bind(1, scope);
  statement.step();
  const bool lives = statement.integer(0) != 0;
  statement.reset();
  return lives;
}

std::vector<Memory> MemoryStore::byType(std::string_view type, std::string_view scopePrefix,
                                        const std::vector<wire::FilterPair>& equal, std::size_t limit) {
  // Three ways to the same rows, newest first. A rare filter is a shorter list than any type; so
  // is a narrow scope, through (type, scope). Otherwise the type's index in date order stops at
  // the limit. The short lists are sorted; counting whether a list is short is bounded.
  std::optional<std::size_t> rarest;
  std::int64_t fewest = kRareFilter;
  for (std::size_t i = 0; i < equal.size(); ++i) {
    auto& count = database_->cached(
        "SELECT COUNT(*) FROM (SELECT 1 FROM filters WHERE key = ?1 AND kind = ?2 AND value = ?3 LIMIT " +
        std::to_string(kRareFilter) + ")");
    count.bind(1, equal[i].key);
    bindFilterValue(count, 2, equal[i].value);
    count.step();
    if (const auto matches = count.integer(0); matches < fewest) {
      fewest = matches;
      rarest = i;
    }
    count.reset();
  }
  const bool everywhere = scopePrefix == "/";
  bool narrowScope = false;
  if (!rarest && !everywhere) {
    auto& count = database_->cached(
        "SELECT COUNT(*) FROM (SELECT 1 FROM memories INDEXED BY memories_by_type_scope WHERE type = ?1 AND " +
        std::string(kScopeRange) + " LIMIT " + std::to_string(kNarrowScope) + ")");
    count.bind(1, type).bind(2, scopePrefix);
    count.step();
    narrowScope = count.integer(0) < kNarrowScope;
    count.reset();
  }
  std::string sql = "SELECT " + std::string(kMemoryColumns) + " FROM ";
  if (rarest) {
    const std::string at = std::to_string(4 + 3 * *rarest);
    sql += "filters d CROSS JOIN memories m ON m.id = d.memory WHERE d.key = ?" + at + " AND d.kind = ?" +
           std::to_string(5 + 3 * *rarest) + " AND d.value = ?" + std::to_string(6 + 3 * *rarest) + " AND type = ?1";
  } else if (narrowScope) {
    sql += "memories m INDEXED BY memories_by_type_scope WHERE type = ?1";
  } else {
    // Named, or the planner would sort every row of a broad scope instead of stopping at the limit.
    sql += "memories m INDEXED BY memories_by_type WHERE type = ?1";
  }
  if (!everywhere) sql += " AND " + std::string(kScopeRange);
  for (std::size_t i = 0; i < equal.size(); ++i)
    sql += " AND EXISTS(SELECT 1 FROM filters f WHERE f.memory = m.id AND f.key = ?" + std::to_string(4 + 3 * i) +
           " AND f.kind = ?" + std::to_string(5 + 3 * i) + " AND f.value = ?" + std::to_string(6 + 3 * i) + ")";
  sql += " ORDER BY created DESC, id DESC LIMIT ?3";
  auto& statement = database_->cached(sql);
  statement.bind(1, type).bind(2, scopePrefix).bind(3, static_cast<std::int64_t>(limit));
  for (std::size_t i = 0; i < equal.size(); ++i) {
    const int base = 4 + 3 * static_cast<int>(i);
    statement.bind(base, equal[i].key);
    bindFilterValue(statement, base + 1, equal[i].value);
  }
  std::vector<Memory> found;
  while (statement.step()) found.push_back(readMemory(statement));
  statement.reset();
  for (auto& memory : found) memory.filters = filtersOf(memory.id);
  return found;
}

std::vector<wire::KindCount> MemoryStore::typeCounts(std::string_view scopePrefix) {
  std::map<std::string, wire::KindCount> byType;
  auto& types = database_->cached("SELECT type, COUNT(*) FROM memories WHERE " + underScope("scope", 1) + " GROUP BY type");
  types.bind(1, scopePrefix);
  while (types.step()) byType[types.text(0)] = wire::KindCount{.kind = types.text(0), .count = types.integer(1)};
  types.reset();

  auto& keys = database_->cached(
      "SELECT m.type, f.key, COUNT(*) FROM filters f JOIN memories m ON m.id = f.memory WHERE " +
      underScope("m.scope", 1) + " GROUP BY m.type, f.key");
  keys.bind(1, scopePrefix);
  while (keys.step()) {
    auto& counted = byType[keys.text(0)];
    if (!counted.filters) counted.filters.emplace();
    counted.filters->push_back(wire::FilterKeyCount{.key = keys.text(1), .count = keys.integer(2)});
  }
  keys.reset();

  std::vector<wire::KindCount> counts;
  for (auto& [type, counted] : byType) {
    if (counted.filters)
      std::stable_sort(counted.filters->begin(), counted.filters->end(),
                       [](const auto& a, const auto& b) { return a.count > b.count; });
    counts.push_back(std::move(counted));
  }
  std::stable_sort(counts.begin(), counts.end(), [](const auto& a, const auto& b) { return a.count > b.count; });
  return counts;
}

std::vector<std::int64_t> MemoryStore::idsWithFilter(std::string_view key, std::string_view value) {
  auto& statement =
      database_->cached("SELECT memory FROM filters WHERE key = ?1 AND kind = 's' AND value = ?2 ORDER BY memory");
  statement.bind(1, key).bind(2, value);
  std::vector<std::int64_t> ids;
  while (statement.step()) ids.push_back(statement.integer(0));
  statement.reset();
  return ids;
}

std::vector<ScopeCounts> MemoryStore::scopeCounts() {
  std::map<std::string, ScopeCounts> byScope;
  auto& memories = database_->cached(
      "SELECT scope, SUM(type = 'rule'), SUM(type <> 'rule') FROM memories GROUP BY scope");
  while (memories.step())
    byScope[memories.text(0)] =
        ScopeCounts{.scope = memories.text(0), .rules = memories.integer(1), .notes = memories.integer(2)};
  memories.reset();
  auto& mapped = database_->cached("SELECT DISTINCT scope FROM folders");
  while (mapped.step()) byScope.try_emplace(mapped.text(0), ScopeCounts{.scope = mapped.text(0)});
  mapped.reset();
  std::vector<ScopeCounts> counts;
  for (auto& [scope, counted] : byScope) counts.push_back(std::move(counted));
  return counts;
}

std::vector<std::string> MemoryStore::rulesAt(std::string_view scope) {
  auto& statement =
      database_->cached("SELECT text FROM memories WHERE type = 'rule' AND scope = ?1 ORDER BY created, id");
  statement.bind(1, scope);
  std::vector<std::string> rules;
  while (statement.step()) rules.push_back(statement.text(0));
  statement.reset();
  return rules;
}

std::int64_t MemoryStore::rulesBelow(std::string_view scope) {
  auto& statement = database_->cached("SELECT COUNT(*) FROM memories WHERE type = 'rule' AND scope <> ?1 AND " +
                                      underScope("scope", 1));
  statement.bind(1, scope);
  statement.step();
  const auto count = statement.integer(0);
  statement.reset();
  return count;
}

std::optional<std::string> MemoryStore::scopeForFolder(std::string_view folder) {
  // The deepest mapping wins: /home/mq/code/quillon over /home/mq/code.
  auto& statement = database_->cached(
      "SELECT scope FROM folders WHERE folder = ?1 OR (folder = '/' AND substr(?1, 1, 1) = '/') OR "
      "substr(?1, 1, length(folder) + 1) = folder || '/' ORDER BY length(folder) DESC LIMIT 1");
  statement.bind(1, folder);
  std::optional<std::string> scope;
  if (statement.step()) scope = statement.text(0);
  statement.reset();
  return scope;
}

std::optional<std::string> MemoryStore::mapFolder(std::string_view folder, std::string_view scope) {
  auto& previous = database_->cached("SELECT scope FROM folders WHERE folder = ?1");
  previous.bind(1, folder);
  std::optional<std::string> was;
  if (previous.step()) was = previous.text(0);
  previous.reset();
  database_->cached("INSERT OR REPLACE INTO folders(folder, scope) VALUES (?1, ?2)").bind(1, folder).bind(2, scope).step();
  return was;
}

std::vector<FolderScope> MemoryStore::folders() {
  auto& statement = database_->cached("SELECT folder, scope FROM folders ORDER BY folder");
  std::vector<FolderScope> all;
  while (statement.step()) all.push_back(FolderScope{.folder = statement.text(0), .scope = statement.text(1)});
  statement.reset();
  return all;
}

std::optional<std::string> MemoryStore::sessionScope(std::string_view session, double since) {
  auto& statement = database_->cached("SELECT scope FROM session_scopes WHERE session = ?1 AND declared >= ?2");
  statement.bind(1, session).bind(2, since);
  std::optional<std::string> scope;
  if (statement.step()) scope = statement.text(0);
  statement.reset();
  return scope;
}

void MemoryStore::setSessionScope(std::string_view session, std::string_view scope, double at) {
  database_->cached("INSERT OR REPLACE INTO session_scopes(session, scope, declared) VALUES (?1, ?2, ?3)")
      .bind(1, session)
      .bind(2, scope)
      .bind(3, at)
      .step();
}

std::optional<std::string> MemoryStore::keptAnswer(std::string_view token, double now) {
  auto& statement = database_->cached("SELECT answer FROM door_tokens WHERE token = ?1 AND at >= ?2");
  statement.bind(1, token).bind(2, now - kTokenSeconds);
  std::optional<std::string> answer;
  if (statement.step()) answer = statement.text(0);
  statement.reset();
  return answer;
}

void MemoryStore::keepAnswer(std::string_view token, std::string_view answer, double now) {
  database_->cached("DELETE FROM door_tokens WHERE at < ?1").bind(1, now - kTokenSeconds).step();
  database_->cached("INSERT OR REPLACE INTO door_tokens(token, answer, at) VALUES (?1, ?2, ?3)")
      .bind(1, token)
      .bind(2, answer)
      .bind(3, now)
      .step();
}

std::int64_t MemoryStore::promptsOf(std::string_view session) {
  auto& statement = database_->cached("SELECT prompts FROM sessions WHERE id = ?1");
  statement.bind(1, session);
  const std::int64_t prompts = statement.step() ? statement.integer(0) : 0;
  statement.reset();
  return prompts;
}

std::vector<std::string> MemoryStore::selfNames() {
  auto& statement = database_->cached("SELECT name FROM self_names ORDER BY position");
  std::vector<std::string> names;
  while (statement.step()) names.push_back(statement.text(0));
  statement.reset();
  return names;
}

void MemoryStore::setSelfNames(const std::vector<std::string>& names) {
  database_->cached("DELETE FROM self_names").step();
  for (std::size_t i = 0; i < names.size(); ++i)
    database_->cached("INSERT INTO self_names(position, name) VALUES (?1, ?2)")
        .bind(1, static_cast<std::int64_t>(i))
        .bind(2, names[i])
        .step();
}

std::vector<wire::FilterPair> MemoryStore::filtersOf(std::int64_t id) {
  auto& statement = database_->cached("SELECT key, kind, value FROM filters WHERE memory = ?1 ORDER BY key");
  statement.bind(1, id);
  std::vector<wire::FilterPair> filters;
  while (statement.step()) filters.push_back(wire::FilterPair{.key = statement.text(0), .value = readFilterValue(statement, 1)});
  statement.reset();
  return filters;
}

void MemoryStore::writeFilters(std::int64_t id, const std::vector<wire::FilterPair>& filters) {
  for (const auto& pair : filters) {
    auto& statement = database_->cached("INSERT INTO filters(memory, key, kind, value) VALUES (?1, ?2, ?3, ?4)");
    statement.bind(1, id).bind(2, pair.key);
    bindFilterValue(statement, 3, pair.value);
    statement.step();
  }
}

}  // namespace quillon::gateway
