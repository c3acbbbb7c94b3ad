#include "QuillonGateway/StoreExport.hpp"

#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <istream>
#include <map>
#include <ostream>
#include <regex>
#include <set>
#include <unordered_map>

#include "QuillonBase/Text.hpp"
#include "QuillonGateway/ShapeLaws.hpp"
#include "QuillonGateway/Sqlite.hpp"
#include "QuillonGateway/StoreWording.hpp"

namespace quillon::gateway {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

// Why a line of an export cannot be taken; the line number is added where it is caught.
struct Refusal {
  std::string why;
};

// "2026-11-24T10:00:00.123Z": UTC to the millisecond, the precision every date reader keeps.
std::string isoDate(double seconds, bool milliseconds) {
  const double ms = std::round(seconds * 1000);
  const double whole = std::floor(ms / 1000);
  const auto time = static_cast<std::time_t>(whole);
  std::tm utc{};
  ::gmtime_r(&time, &utc);
  char text[48];
  const auto length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  if (milliseconds)
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(ms - whole * 1000));
  else
    std::snprintf(text + length, sizeof text - length, "Z");
  return text;
}

// RFC 3339, as written above or with a UTC offset; nothing for anything else (a 30 February too).
std::optional<double> parseDate(const std::string& text) {
  static const std::regex kDate(R"(^(\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2}):(\d{2})(\.\d{1,9})?(Z|([+-])(\d{2}):(\d{2}))$)");
  std::smatch parts;
  if (!std::regex_match(text, parts, kDate)) return std::nullopt;
  const auto number = [&](int i) { return std::stoi(parts[i].str()); };
  std::tm given{};
  given.tm_year = number(1) - 1900;
  given.tm_mon = number(2) - 1;
  given.tm_mday = number(3);
  given.tm_hour = number(4);
  given.tm_min = number(5);
  given.tm_sec = number(6);
  std::tm check = given;
  const std::time_t time = ::timegm(&check);
  if (check.tm_mday != given.tm_mday || check.tm_mon != given.tm_mon || check.tm_hour != given.tm_hour ||
      check.tm_min != given.tm_min || check.tm_sec != given.tm_sec)
    return std::nullopt;
  double seconds = static_cast<double>(time);
  if (parts[7].matched) seconds += std::stod("0" + parts[7].str());
  if (parts[9].matched) seconds -= (parts[9].str() == "+" ? 1 : -1) * (number(10) * 3600.0 + number(11) * 60.0);
  return seconds;
}

// The members of one record, each read as the kind it must be; a member left unread is refused,
// so a misspelt one never passes for absent.
class Record {
 public:
  explicit Record(const json& object) : object_(object) { seen_.insert("record"); }

  const json* member(const std::string& key) {
    seen_.insert(key);
    const auto found = object_.find(key);
    return found == object_.end() || found->is_null() ? nullptr : &*found;
  }
  std::optional<std::string> optionalText(const std::string& key) {
    const json* value = member(key);
    if (value == nullptr) return std::nullopt;
    if (!value->is_string()) throw Refusal{"'" + key + "' is not a string"};
    return value->get<std::string>();
  }
  std::string text(const std::string& key) {
    auto value = optionalText(key);
    if (!value) throw Refusal{"'" + key + "' is missing"};
    return *value;
  }
  std::optional<double> optionalDate(const std::string& key) {
    const auto value = optionalText(key);
    if (!value) return std::nullopt;
    const auto seconds = parseDate(*value);
    if (!seconds) throw Refusal{"'" + key + "' is '" + ShapeLaws::echoed(*value, 60) + "', not a date like 2026-11-24T10:00:00Z"};
    return seconds;
  }
  void noOthers(std::string_view kind) const {
    for (const auto& [key, value] : object_.items())
      if (seen_.count(key) == 0) throw Refusal{"'" + ShapeLaws::echoed(key, 60) + "' is not a member of a " + std::string(kind) + " record"};
  }

 private:
  const json& object_;
  std::set<std::string> seen_;
};

std::string checkedText(Record& record, const std::string& key, std::optional<std::string> (*sized)(std::string_view)) {
  std::string value = record.text(key);
  if (base::trimmed(value).empty()) throw Refusal{"'" + key + "' is empty"};
  if (auto refusal = sized(value)) throw Refusal{*refusal};
  return value;
}

Memory readMemory(Record& record) {
  Memory memory;
  const std::string id = record.text("id");
  const auto number = parseMemoryID(id);
  if (!number) throw Refusal{"'" + ShapeLaws::echoed(id, 60) + "' is not a memory id like m:12"};
  memory.id = *number;
  const auto type = ShapeLaws::type(record.text("type"));
  if (!type.value) throw Refusal{type.refusal};
  const auto scope = ShapeLaws::scope(record.text("scope"));
  if (!scope.value) throw Refusal{scope.refusal};
  memory.type = *type.value;
  memory.scope = *scope.value;
  if (memory.type == "shortcut" && memory.scope != "/") throw Refusal{"a shortcut lives at /, not at " + memory.scope};
  memory.text = checkedText(record, "text", &ShapeLaws::text);
  memory.why = checkedText(record, "why", &ShapeLaws::why);
  if (auto title = record.optionalText("title"); title && !base::trimmed(*title).empty()) {
    if (auto refusal = ShapeLaws::title(base::trimmed(*title))) throw Refusal{*refusal};
    memory.title = base::trimmed(*title);
  }
  if (const json* filters = record.member("filters")) {
    if (!filters->is_object()) throw Refusal{"'filters' is not an object of keys and values"};
    wire::Filters given;
    for (const auto& [key, value] : filters->items()) {
      if (value.is_string())
        given[key] = wire::FilterValue::string(value.get<std::string>());
      else if (value.is_boolean())
        given[key] = wire::FilterValue::boolean(value.get<bool>());
      else if (value.is_number())
        given[key] = wire::FilterValue::number(value.get<double>());
      else
        throw Refusal{"filter '" + ShapeLaws::echoed(key, 60) + "' is neither a string, a number nor true or false"};
    }
    if (auto refusal = ShapeLaws::filters(given)) throw Refusal{*refusal};
    memory.filters = pairs(given);
  }
  memory.writer = record.text("writer");
  memory.session = record.optionalText("session");
  memory.subagent = record.optionalText("subagent");
  const auto created = record.optionalDate("created");
  if (!created) throw Refusal{"'created' is missing"};
  memory.created = *created;
  memory.edited = record.optionalDate("edited");
  record.noOthers("memory");
  return memory;
}

bool isWordByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Calls `each(at, length, id)` for every memory id standing alone in `text`.
template <typename Each>
void forEachId(std::string_view text, Each each) {
  for (auto at = text.find("m:"); at != std::string_view::npos; at = text.find("m:", at + 1)) {
    if (at > 0 && isWordByte(text[at - 1])) continue;
    auto end = at + 2;
    while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
    if (end < text.size() && isWordByte(text[end])) continue;
    if (const auto id = parseMemoryID(text.substr(at, end - at))) each(at, end - at, *id);
  }
}

// Each id `renamed` names anew, as it says; the others as they are.
template <typename Renamed>
std::string renumbered(const std::string& text, Renamed renamed) {
  std::string result;
  std::size_t from = 0;
  forEachId(text, [&](std::size_t at, std::size_t length, std::int64_t id) {
    if (const std::optional<std::int64_t> now = renamed(id)) {
      result.append(text, from, at - from).append(memoryID(*now));
      from = at + length;
    }
  });
  return result.append(text, from, std::string::npos);
}

std::vector<std::int64_t> idsIn(std::string_view text) {
  std::vector<std::int64_t> ids;
  forEachId(text, [&](std::size_t, std::size_t, std::int64_t id) { ids.push_back(id); });
  return ids;
}

// What decides that two memories are one, with the ids in their words left out: those in an
// export are renumbered when it is imported.
std::size_t sameness(std::string_view type, std::string_view scope, std::string_view text, std::string_view why) {
  const auto blind = [](std::string_view words) {
    return renumbered(std::string(words), [](std::int64_t) { return std::optional<std::int64_t>(0); });
  };
  return std::hash<std::string>{}(std::string(type) + '\0' + std::string(scope) + '\0' + blind(text) + '\0' + blind(why));
}

using Renumbering = std::unordered_map<std::int64_t, std::int64_t>;

// Whether the ids in a stored text are those in the imported one: an id of a memory of the file
// must be the memory it became (when that is known yet), any other id itself.
bool sameIds(std::string_view stored, std::string_view imported, const std::set<std::int64_t>& ofFile,
             const Renumbering& became) {
  const auto theirs = idsIn(stored), ours = idsIn(imported);
  if (theirs.size() != ours.size()) return false;
  for (std::size_t i = 0; i < ours.size(); ++i) {
    if (ofFile.count(ours[i]) == 0) {
      if (theirs[i] != ours[i]) return false;
    } else if (const auto found = became.find(ours[i]); found != became.end() && found->second != theirs[i]) {
      return false;
    }
  }
  return true;
}

bool refersToFile(const Memory& memory, const std::set<std::int64_t>& ofFile) {
  bool refers = false;
  const auto look = [&](std::string_view words) {
    forEachId(words, [&](std::size_t, std::size_t, std::int64_t id) { refers = refers || ofFile.count(id) != 0; });
  };
  look(memory.text);
  look(memory.why);
  if (memory.title) look(*memory.title);
  for (const auto& pair : memory.filters)
    if (const auto* value = pair.value.asString()) look(*value);
  return refers;
}

}  // namespace

ExportCounts StoreExport::write(Database& database, std::ostream& out, double now) {
  ExportCounts counts;
  const auto line = [&](const ordered_json& value) { out << value.dump(-1, ' ', false, json::error_handler_t::replace) << '\n'; };
  database.exec("BEGIN");  // one read snapshot for the whole export
  auto& schema = database.cached("PRAGMA user_version");
  schema.step();
  const auto version = schema.integer(0);
  schema.reset();
  if (version > MemoryStore::kSchemaVersion)
    throw SqlError("the store has schema version " + std::to_string(version) + ", newer than this program's " +
                   std::to_string(MemoryStore::kSchemaVersion) + "; export it with the newer quillon-gateway");
  line({{"format", kFormat}, {"version", kVersion}, {"exported", isoDate(now, false)}});

  auto& memories = database.cached(
      "SELECT id, type, scope, title, text, why, writer, session, subagent, created, edited FROM memories ORDER BY id");
  // Walked beside the memories: both are in id order.
  auto& filters = database.cached("SELECT memory, key, kind, value FROM filters ORDER BY memory, key");
  bool moreFilters = filters.step();
  while (memories.step()) {
    const auto id = memories.integer(0);
    ordered_json memory = {{"record", "memory"}, {"id", memoryID(id)}, {"type", memories.text(1)}, {"scope", memories.text(2)}};
    if (!memories.isNull(3)) memory["title"] = memories.text(3);
    memory["text"] = memories.text(4);
    memory["why"] = memories.text(5);
    while (moreFilters && filters.integer(0) < id) moreFilters = filters.step();
    ordered_json values = ordered_json::object();
    for (; moreFilters && filters.integer(0) == id; moreFilters = filters.step()) {
      const std::string kind = filters.text(2), key = filters.text(1);
      const double number = filters.real(3);
      if (kind == "b")
        values[key] = filters.integer(3) != 0;
      else if (kind == "s")
        values[key] = filters.text(3);
      else if (number == std::floor(number) && std::fabs(number) < 1e15)
        values[key] = static_cast<std::int64_t>(number);  // 4, not 4.0
      else
        values[key] = number;
    }
    if (!values.empty()) memory["filters"] = std::move(values);
    memory["writer"] = memories.text(6);
    if (!memories.isNull(7)) memory["session"] = memories.text(7);
    if (!memories.isNull(8)) memory["subagent"] = memories.text(8);
    memory["created"] = isoDate(memories.real(9), true);
    if (!memories.isNull(10)) memory["edited"] = isoDate(memories.real(10), true);
    line(memory);
    ++counts.memories;
  }
  auto& folders = database.cached("SELECT folder, scope FROM folders ORDER BY folder");
  for (; folders.step(); ++counts.folders)
    line({{"record", "folder"}, {"folder", folders.text(0)}, {"scope", folders.text(1)}});
  auto& names = database.cached("SELECT name FROM self_names ORDER BY position");
  std::vector<std::string> all;
  while (names.step()) all.push_back(names.text(0));
  if (!all.empty()) line({{"record", "names"}, {"names", all}});
  counts.names = static_cast<std::int64_t>(all.size());
  database.settle();
  database.exec("COMMIT");
  return counts;
}

std::variant<ExportContents, std::string> StoreExport::read(std::istream& in) {
  ExportContents contents;
  std::map<std::int64_t, std::size_t> lineOfId;
  std::set<std::string> folders, names;
  std::size_t number = 0;
  bool headed = false;
  for (std::string text; std::getline(in, text);) {
    ++number;
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (headed && base::trimmed(text).empty()) continue;
    try {
      json value;
      try {
        value = json::parse(text);
      } catch (const json::parse_error& error) {
        throw Refusal{"not JSON (it breaks at byte " + std::to_string(error.byte) + ")"};
      }
      if (!value.is_object()) throw Refusal{"not a JSON object"};
      if (!headed) {
        const auto format = value.find("format");
        const auto version = value.find("version");
        if (format == value.end() || *format != kFormat || version == value.end() || !version->is_number_unsigned())
          throw Refusal{"not the start of a Quillon export (a first line such as {\"format\":\"quillon-export\",\"version\":1})"};
        if (version->get<std::uint64_t>() > static_cast<std::uint64_t>(kVersion))
          throw Refusal{"a version " + std::to_string(version->get<std::uint64_t>()) +
                        " export, newer than this quillon-gateway reads (" + std::to_string(kVersion) +
                        "); import it with a newer one"};
        headed = true;
        continue;
      }
      const auto kind = value.find("record");
      if (kind == value.end() || !kind->is_string())
        throw Refusal{"no 'record' member saying what the line holds (memory, folder or names)"};
      Record record(value);
      if (*kind == "memory") {
        Memory memory = readMemory(record);
        if (const auto [at, added] = lineOfId.emplace(memory.id, number); !added)
          throw Refusal{memoryID(memory.id) + " is on line " + std::to_string(at->second) + " already"};
        contents.memories.push_back(std::move(memory));
      } else if (*kind == "folder") {
        const auto folder = ShapeLaws::folder(record.text("folder"));
        if (!folder.value) throw Refusal{folder.refusal};
        const auto scope = ShapeLaws::scope(record.text("scope"));
        if (!scope.value) throw Refusal{scope.refusal};
        record.noOthers("folder");
        if (!folders.insert(*folder.value).second) throw Refusal{"the folder " + *folder.value + " is mapped twice"};
        contents.folders.push_back(FolderScope{.folder = *folder.value, .scope = *scope.value});
      } else if (*kind == "names") {
        const json* list = record.member("names");
        if (list == nullptr || !list->is_array()) throw Refusal{"'names' is not a list of names"};
        record.noOthers("names");
        for (const auto& name : *list) {
          if (!name.is_string() || base::trimmed(name.get<std::string>()).empty()) throw Refusal{"a name is empty or not a string"};
          const std::string clean(base::trimmed(name.get<std::string>()));
          if (clean.find(',') != std::string::npos) throw Refusal{"the name '" + clean + "' holds a comma, which separates names"};
          if (names.insert(clean).second) contents.names.push_back(clean);
        }
      } else {
        throw Refusal{"'record' is '" + ShapeLaws::echoed(kind->get<std::string>(), 60) +
                      "', not one of memory, folder or names"};
      }
    } catch (const Refusal& refusal) {
      return "line " + std::to_string(number) + ": " + refusal.why;
    }
  }
  if (in.bad()) return std::string("it could not be read to the end");
  if (!headed) return std::string("it is empty, not a Quillon export");
  return contents;
}

ImportCounts StoreExport::import(const ExportContents& contents, const std::string& storePath, bool dryRun) {
  ImportCounts counts;
  std::unique_ptr<MemoryStore> store;
  std::unique_ptr<Database> lookOnly;
  std::unique_ptr<WriteTransaction> transaction;
  Database* reads = nullptr;
  struct stat info {};
  if (!dryRun) {
    store = std::make_unique<MemoryStore>(storePath);
    transaction = store->beginWrite();
    reads = &store->database();
  } else if (::stat(storePath.c_str(), &info) == 0) {
    lookOnly = std::make_unique<Database>(storePath, Database::Access::readOnly);
    lookOnly->exec("BEGIN");
    reads = lookOnly.get();
  }

  // The store's memories as they were, by what makes two memories one. Each is matched at most
  // once, so an export holding the same memory twice comes back twice.
  std::unordered_multimap<std::size_t, std::int64_t> before;
  if (reads != nullptr) {
    auto& all = reads->cached("SELECT id, type, scope, text, why FROM memories ORDER BY id");
    while (all.step()) before.emplace(sameness(all.text(1), all.text(2), all.text(3), all.text(4)), all.integer(0));
  }
  std::set<std::int64_t> ofFile;
  for (const auto& memory : contents.memories) ofFile.insert(memory.id);

  Renumbering became;
  std::vector<const Memory*> toRenumber;
  std::int64_t placeholder = 0;
  for (const auto& memory : contents.memories) {
    const auto [first, last] = before.equal_range(sameness(memory.type, memory.scope, memory.text, memory.why));
    auto match = last;
    for (auto candidate = first; candidate != last && match == last; ++candidate) {
      auto& stored = reads->cached("SELECT type, scope, text, why FROM memories WHERE id = ?1");
      stored.bind(1, candidate->second);
      if (stored.step() && stored.text(0) == memory.type && stored.text(1) == memory.scope &&
          sameIds(stored.text(2), memory.text, ofFile, became) && sameIds(stored.text(3), memory.why, ofFile, became))
        match = candidate;
      stored.reset();
    }
    if (match != last) {
      became[memory.id] = match->second;
      before.erase(match);
      ++counts.memoriesThere;
      continue;
    }
    ++counts.memories;
    // A dry run's new memories get ids no stored memory has, as a real run's would.
    became[memory.id] = dryRun ? --placeholder : store->insert(memory);
    if (refersToFile(memory, ofFile)) toRenumber.push_back(&memory);
  }
  // Once every memory of the file has its id, the words that point at them follow.
  const auto renamed = [&](std::int64_t id) -> std::optional<std::int64_t> {
    const auto found = became.find(id);
    return found == became.end() ? std::nullopt : std::optional(found->second);
  };
  for (const Memory* memory : dryRun ? std::vector<const Memory*>() : toRenumber) {
    Memory changed = *memory;
    changed.id = became[memory->id];
    changed.text = renumbered(memory->text, renamed);
    changed.why = renumbered(memory->why, renamed);
    if (changed.title) changed.title = renumbered(*changed.title, renamed);
    for (auto& pair : changed.filters)
      if (const auto* value = pair.value.asString()) pair.value = wire::FilterValue::string(renumbered(*value, renamed));
    store->update(changed);
  }

  for (const auto& mapping : contents.folders) {
    std::optional<std::string> mapped;
    if (reads != nullptr) {
      auto& existing = reads->cached("SELECT scope FROM folders WHERE folder = ?1");
      existing.bind(1, mapping.folder);
      if (existing.step()) mapped = existing.text(0);
      existing.reset();
    }
    if (!mapped) {
      ++counts.folders;
      if (!dryRun) store->mapFolder(mapping.folder, mapping.scope);
    } else {
      // The store's own mapping is how this machine's folders are laid out now; the file's is not.
      ++(*mapped == mapping.scope ? counts.foldersThere : counts.foldersKept);
    }
  }

  std::vector<std::string> names;
  if (reads != nullptr) {
    auto& stored = reads->cached("SELECT name FROM self_names ORDER BY position");
    while (stored.step()) names.push_back(stored.text(0));
    stored.reset();
  }
  // Added after the store's own, whose first labels the user's lines and stays first.
  for (const auto& name : contents.names) {
    if (std::find(names.begin(), names.end(), name) != names.end()) {
      ++counts.namesThere;
    } else {
      names.push_back(name);
      ++counts.names;
    }
  }
  if (!dryRun) {
    if (counts.names > 0) store->setSelfNames(names);
    transaction->commit();
  } else if (lookOnly) {
    lookOnly->settle();
    lookOnly->exec("COMMIT");
  }
  return counts;
}

}  // namespace quillon::gateway
