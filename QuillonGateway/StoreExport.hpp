// StoreExport: the store as JSON Lines a person can keep, read and bring into another store
// (docs/gateway.md, "Status, export, import and backup", has the format).
//
// Writing reads in one transaction, so an export is one moment of the store even while a gateway
// writes. Reading checks the whole file before anything is written: the first line that is not
// the format, or a memory that breaks the shape laws, stops the import and is named. Importing
// adds in one write transaction what the store lacks (a memory equal in type, scope, text and why
// to one already there is that memory) through MemoryStore::insert, so recall's indexes stay in
// step, and renumbers the ids that the imported memories' words point at. Throws SqlError when
// the store fails.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

#include "QuillonGateway/MemoryStore.hpp"

namespace quillon::gateway {

class Database;

// What an export holds, checked and in its stored spelling. The memories keep their ids from the
// file until imported.
struct ExportContents {
  std::vector<Memory> memories;
  std::vector<FolderScope> folders;
  std::vector<std::string> names;
};

struct ExportCounts {
  std::int64_t memories = 0, folders = 0, names = 0;
};

struct ImportCounts {
  std::int64_t memories = 0, memoriesThere = 0;
  std::int64_t folders = 0, foldersThere = 0, foldersKept = 0;  // kept: the store maps the folder elsewhere
  std::int64_t names = 0, namesThere = 0;
};

struct StoreExport {
  static constexpr std::string_view kFormat = "quillon-export";
  static constexpr int kVersion = 1;

  // Every memory (by id), folder mapping and self name of `database`, dated `now`.
  static ExportCounts write(Database& database, std::ostream& out, double now);
  // The file's contents, or "line N: why" for the first line that is not the format.
  static std::variant<ExportContents, std::string> read(std::istream& in);
  // Adds what the store at `storePath` lacks, in one transaction. A dry run opens the store
  // read-only (or not at all when there is none) and only counts.
  static ImportCounts import(const ExportContents& contents, const std::string& storePath, bool dryRun);
};

}  // namespace quillon::gateway
