// Sqlite: one SQLite connection and its statements, owned and freed like any other resource.
//
// The store is the only user. Every call that SQLite refuses throws SqlError naming the statement
// and SQLite's own message; the store catches it at the verb and answers `failure`, so nothing
// thrown here ever crosses the door. Not thread-safe: each thread of the gateway holds its own
// Database (SQLite's WAL lets them read at once and serialises their writes).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace quillon::gateway {

// How long a connection waits for another one's write lock before its statement fails busy.
inline constexpr int kBusyWaitSeconds = 10;

class SqlError : public std::runtime_error {
 public:
  // `code` is SQLite's result code, 0 when the refusal is the store's own.
  explicit SqlError(const std::string& what, int code = 0) : std::runtime_error(what), code_(code) {}
  // Another connection (another gateway thread, an import) held the store past kBusyWaitSeconds.
  bool busy() const;

 private:
  int code_ = 0;
};

class Statement {
 public:
  Statement(sqlite3* database, std::string_view sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Parameters count from 1, as in SQL's ?1.
  Statement& bind(int index, std::string_view text);
  Statement& bind(int index, std::int64_t number);
  Statement& bind(int index, double number);
  Statement& bindNull(int index);

  // True while there is a row to read; false when done. Throws on failure.
  bool step();
  // Ready to run again with new parameters.
  void reset();

  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  double real(int column) const;
  std::string text(int column) const;

 private:
  sqlite3* database_;
  sqlite3_stmt* statement_ = nullptr;
};

class Database {
 public:
  // Read-only never creates, migrates nor writes the store: what a look from outside needs while
  // a gateway serves it.
  enum class Access { readWrite, readOnly };

  // Opens the file at `path`, creating it when missing unless read-only. Throws SqlError.
  explicit Database(const std::string& path, Access access = Access::readWrite);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void exec(std::string_view sql);
  // A statement prepared once for this connection and reset before it is handed out again.
  Statement& cached(std::string_view sql);
  // Resets every cached statement. A statement left on a row holds its read snapshot open: the
  // connection would keep reading the past, and could not take the write lock once another
  // connection has written.
  void settle();
  std::int64_t lastInsertId() const;
  int changes() const;
  // Whether a transaction is open on this connection.
  bool inTransaction() const;
  // Replaces everything in `destination` with this database as it stands at one moment, even
  // while other connections write to it (SQLite's online backup). Throws SqlError.
  void copyInto(Database& destination);
  // How long this connection waits for a lock another connection holds; kBusyWaitSeconds unless set.
  void waitWhenBusy(int milliseconds);

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };
  std::unique_ptr<sqlite3, Close> database_;
  std::map<std::string, std::unique_ptr<Statement>, std::less<>> cache_;
};

// BEGIN IMMEDIATE on construction, so a writer takes the write lock before it reads what it will
// change; rolled back on destruction unless committed. Inside a transaction already open on the
// connection it is a savepoint of it: its changes are undone alone, and kept only when the outer
// one commits.
class WriteTransaction {
 public:
  explicit WriteTransaction(Database& database);
  ~WriteTransaction();
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  void commit();

 private:
  Database& database_;
  bool nested_ = false;
  bool done_ = false;
};

}  // namespace quillon::gateway
