#include "QuillonGateway/Sqlite.hpp"

#include <sqlite3.h>

#include <chrono>
#include <thread>

namespace quillon::gateway {

namespace {

[[noreturn]] void fail(sqlite3* database, std::string_view what) {
  if (database == nullptr) throw SqlError(std::string(what) + ": out of memory", SQLITE_NOMEM);
  throw SqlError(std::string(what) + ": " + sqlite3_errmsg(database), sqlite3_extended_errcode(database));
}

}  // namespace

bool SqlError::busy() const {
  const int primary = code_ & 0xff;  // an extended code keeps its primary one in the low byte
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

Statement::Statement(sqlite3* database, std::string_view sql) : database_(database) {
  if (sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement_,
                         nullptr) != SQLITE_OK)
    fail(database, "prepare " + std::string(sql.substr(0, 60)));
}

Statement::~Statement() { sqlite3_finalize(statement_); }

Statement& Statement::bind(int index, std::string_view text) {
  if (sqlite3_bind_text64(statement_, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK)
    fail(database_, "bind");
  return *this;
}

Statement& Statement::bind(int index, std::int64_t number) {
  if (sqlite3_bind_int64(statement_, index, number) != SQLITE_OK) fail(database_, "bind");
  return *this;
}

Statement& Statement::bind(int index, double number) {
  if (sqlite3_bind_double(statement_, index, number) != SQLITE_OK) fail(database_, "bind");
  return *this;
}

Statement& Statement::bindNull(int index) {
  if (sqlite3_bind_null(statement_, index) != SQLITE_OK) fail(database_, "bind");
  return *this;
}

bool Statement::step() {
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  fail(database_, std::string("step ") + sqlite3_sql(statement_));
}

void Statement::reset() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

bool Statement::isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(statement_, column); }
double Statement::real(int column) const { return sqlite3_column_double(statement_, column); }

std::string Statement::text(int column) const {
  const auto* bytes = sqlite3_column_text(statement_, column);
  if (bytes == nullptr) return {};
  return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
}

void Database::Close::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

Database::Database(const std::string& path, Access access) {
  sqlite3* handle = nullptr;
  const int mode = access == Access::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int result =
      sqlite3_open_v2(path.c_str(), &handle, mode | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_EXRESCODE,
                      nullptr);
  database_.reset(handle);
  if (result != SQLITE_OK) fail(handle, "open " + path);
  // Another thread's write holds the lock for a moment at most; wait for it rather than fail.
  sqlite3_busy_timeout(handle, kBusyWaitSeconds * 1000);
}

void Database::waitWhenBusy(int milliseconds) { sqlite3_busy_timeout(database_.get(), milliseconds); }

Database::~Database() {
  cache_.clear();  // statements before the connection they belong to
}

void Database::exec(std::string_view sql) {
  char* message = nullptr;
  if (const int result = sqlite3_exec(database_.get(), std::string(sql).c_str(), nullptr, nullptr, &message);
      result != SQLITE_OK) {
    std::string text = message != nullptr ? message : sqlite3_errmsg(database_.get());
    sqlite3_free(message);
    throw SqlError("exec " + std::string(sql.substr(0, 60)) + ": " + text, result);
  }
}

Statement& Database::cached(std::string_view sql) {
  auto found = cache_.find(sql);
  if (found == cache_.end())
    found = cache_.emplace(std::string(sql), std::make_unique<Statement>(database_.get(), sql)).first;
  found->second->reset();
  return *found->second;
}

void Database::settle() {
  for (auto& [sql, statement] : cache_) statement->reset();
}

std::int64_t Database::lastInsertId() const { return sqlite3_last_insert_rowid(database_.get()); }
int Database::changes() const { return sqlite3_changes(database_.get()); }
bool Database::inTransaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }

void Database::copyInto(Database& destination) {
  sqlite3_backup* backup = sqlite3_backup_init(destination.database_.get(), "main", database_.get(), "main");
  if (backup == nullptr) fail(destination.database_.get(), "backup");
  // All pages in one step, so the copy is one read snapshot: in WAL a reader holds up no writer.
  // A lock can still be busy for a moment (a checkpoint, a recovery); wait as long as the busy
  // timeout would.
  int result = SQLITE_OK;
  for (int tries = 0; tries < 200; ++tries) {
    result = sqlite3_backup_step(backup, -1);
    if (result != SQLITE_BUSY && result != SQLITE_LOCKED) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  sqlite3_backup_finish(backup);
  if (result != SQLITE_DONE) throw SqlError(std::string("backup: ") + sqlite3_errstr(result));
}

WriteTransaction::WriteTransaction(Database& database)
    : database_(database), nested_(database.inTransaction()) {
  database_.exec(nested_ ? "SAVEPOINT inner_write" : "BEGIN IMMEDIATE");
}

WriteTransaction::~WriteTransaction() {
  if (!done_) {
    try {
      database_.exec(nested_ ? "ROLLBACK TO inner_write; RELEASE inner_write" : "ROLLBACK");
    } catch (const SqlError&) {
      // A failed statement may already have ended the transaction; nothing is left to undo.
    }
  }
}

void WriteTransaction::commit() {
  database_.exec(nested_ ? "RELEASE inner_write" : "COMMIT");
  done_ = true;
}

}  // namespace quillon::gateway
