// rfm_Entries.cpp: the entries of all collections.
#include "rfm_Entries.h"

#include "rfm_DatabaseNode.h"
#include "utl_Utf8.h"

#include <cstring>
#include <limits>

namespace {

constexpr std::int64_t mostInt = std::numeric_limits<int>::max();

// Reads class and row of an entry; they stand in two columns side by side.
void readTarget(rfm_DatabaseNode& database, sqlite3_stmt* statement, int column, std::int64_t handle,
                std::int64_t position, unsigned& classId, int& oid) {
  std::int64_t const storedClass = sqlite3_column_int64(statement, column);
  std::int64_t const storedOid = sqlite3_column_int64(statement, column + 1);
  if (sqlite3_column_type(statement, column) != SQLITE_INTEGER ||
      sqlite3_column_type(statement, column + 1) != SQLITE_INTEGER || storedClass < 0 ||
      storedClass > std::numeric_limits<unsigned>::max() || storedOid < -1 || storedOid > mostInt) {
    database.ThrowDamagedEntry(handle, position, " refers to nothing that can be");
  }
  classId = static_cast<unsigned>(storedClass);
  oid = static_cast<int>(storedOid);
}

// SQLite refuses to look for a text that is longer than those it may read.
bool canBeStored(rfm_Connection const& connection, std::string_view key) {
  int const longest = sqlite3_limit(connection.Database(), SQLITE_LIMIT_LENGTH, -1);
  return key.size() <= static_cast<std::size_t>(longest);
}

// The place of the last entry, looked for from the end of the collection; -1 when there is none.
int lastPlace(rfm_DatabaseNode& database, std::int64_t handle) {
  rfm_Run run(
      database.Connection(), database.lastEntry,
      std::string_view("SELECT position FROM ddr_entry WHERE handle = ?1 ORDER BY position DESC LIMIT 1"));
  run.Bind(1, handle);
  return run.Step() ? static_cast<int>(database.CheckedInteger(run.Get(), 0, 0, mostInt - 2,
                                                               "an entry of a collection has no valid place"))
                    : -1;
}

} // namespace

// ---- the walk ----

rfm_EntryScan::rfm_EntryScan(std::shared_ptr<rfm_DatabaseNode> owner, std::int64_t ofHandle)
    : measure(owner->Connection()), database(std::move(owner)), handle(ofHandle) {
  database->Connection().EnterScope();
}

rfm_EntryScan::~rfm_EntryScan() {
  if (running) {
    database->Connection().Drop(*this);
    Stop();
  }
  database->Connection().LeaveScope();
}

// Called by the connection, which forgets the scan itself.
void rfm_EntryScan::Stop() noexcept {
  running = false;
  sqlite3_reset(statement.Get());
  if (database->idleEntryScans.size() < database->idleEntryScans.capacity()) {
    database->idleEntryScans.push_back(std::move(statement));
  }
  statement.Finalize();
}

sqlite3_stmt* rfm_EntryScan::Next() {
  rfm_Connection& connection = database->Connection();
  if (ended) {
    return nullptr;
  }
  rfm_ScopeGuard const scope(connection); // begins to read anew after a transaction has ended
  if (!running) {
    if (!database->idleEntryScans.empty()) {
      statement = std::move(database->idleEntryScans.back());
      database->idleEntryScans.pop_back();
    }
    database->idleEntryScans.reserve(database->idleEntryScans.size() + 2);
    rfm_Run run(connection, statement,
                std::string_view("SELECT position, Key, ClassID, OID FROM ddr_entry "
                                 "WHERE handle = ?1 AND position >= ?2 ORDER BY position"));
    run.Bind(1, handle);
    // From the very first, so that places that cannot be are met and refused.
    run.Bind(2, position < 0 ? std::numeric_limits<std::int64_t>::min() : std::int64_t{position} + 1);
    connection.Add(*this);
    run.Keep();
    running = true;
  }
  int const result = connection.Advance(statement.Get());
  if (result == SQLITE_ROW) {
    return statement.Get();
  }
  connection.Drop(*this);
  if (result != SQLITE_DONE) {
    running = false;
    statement.Finalize();
    connection.Fail(result);
  }
  Stop();
  // An entry that is out of order ends the walk for those behind it, and nothing would tell.
  if (int const last = lastPlace(*database, handle); last > position) {
    database->ThrowDamagedEntry(handle, last, " stands behind one that is out of order");
  }
  ended = true; // not where the look failed: whoever asks again must not be told that this is the end
  return nullptr;
}

rfm_EntryCursor::rfm_EntryCursor(std::unique_ptr<rfm_EntryScan> walk) noexcept : scan(std::move(walk)) {}

rfm_EntryCursor::rfm_EntryCursor(rfm_EntryCursor&& other) noexcept = default;

rfm_EntryCursor& rfm_EntryCursor::operator=(rfm_EntryCursor&& other) noexcept = default;

rfm_EntryCursor::~rfm_EntryCursor() = default;

bool rfm_EntryCursor::Next() {
  sqlite3_stmt* const statement = scan->Next();
  if (!statement) {
    key = std::string_view();
    return false;
  }
  rfm_DatabaseNode& database = scan->Database();
  ++database.Connection().statistics.rowsRead;
  std::int64_t const stored = sqlite3_column_int64(statement, 0);
  if (sqlite3_column_type(statement, 0) != SQLITE_INTEGER || stored < 0 || stored >= mostInt ||
      stored <= scan->position) { // pages that lead in circles
    database.ThrowDamagedEntry(scan->Handle(), stored, " has no valid place");
  }
  position = static_cast<int>(stored);
  scan->position = position;
  if (sqlite3_column_type(statement, 1) == SQLITE_TEXT) {
    key = rfm_columnText(statement, 1);
  } else if (sqlite3_column_type(statement, 1) == SQLITE_NULL) {
    key = std::string_view("", 0);
  } else {
    database.ThrowDamagedEntry(scan->Handle(), position, " has a key that is not a text");
  }
  if (!utl_IsUtf8(key) || std::memchr(key.data(), 0, key.size()) != nullptr) {
    database.ThrowDamagedEntry(scan->Handle(), position, " has a key that is not UTF-8");
  }
  database.Connection().statistics.bytesRead += rfm_RowBytes + key.size();
  if (scan->measure.IsExceededBy(key.size())) {
    database.ThrowDamagedEntry(
        scan->Handle(), position,
        " and those before it take more than the file holds, so many of them lead to the same pages");
  }
  readTarget(database, statement, 2, scan->Handle(), position, classId, oid);
  return true;
}

// ---- the table of entries ----

rfm_Entries::rfm_Entries(rfm_DatabaseNode& owner) noexcept : database(owner) {}

rfm_Entries::~rfm_Entries() = default;

rfm_EntryCursor rfm_Entries::Scan(std::int64_t handle) const {
  return rfm_EntryCursor(std::make_unique<rfm_EntryScan>(database.shared_from_this(), handle));
}

std::optional<rfm_Entry> rfm_Entries::Find(std::int64_t handle, std::string_view key) const {
  rfm_Connection& connection = database.Connection();
  rfm_ScopeGuard const scope(connection);
  if (!canBeStored(connection, key)) {
    return std::nullopt;
  }
  if (connection.InTransaction() && database.entriesAppended) {
    database.WantEntryIndex(); // otherwise each look-up walks over what was appended
  }
  if (!database.HasEntryIndex()) {
    return database.entryMap.Find(connection, *this, handle, key);
  }
  // SQLite would rather walk over the collection than take the index.
  rfm_Run run(connection, database.findEntry,
              std::string_view("SELECT position, ClassID, OID FROM ddr_entry INDEXED BY ddr_entry_key "
                               "WHERE handle = ?1 AND Key = ?2 ORDER BY position LIMIT 1"));
  run.Bind(1, handle);
  run.Bind(2, key);
  if (!run.Step()) {
    return std::nullopt;
  }
  ++connection.statistics.rowsRead;
  rfm_Entry found;
  found.key = cow_String(key);
  found.position = static_cast<int>(
      database.CheckedInteger(run.Get(), 0, 0, mostInt - 1, "an entry of a collection has no valid place"));
  readTarget(database, run.Get(), 1, handle, found.position, found.classId, found.oid);
  return found;
}

std::optional<rfm_Entry> rfm_Entries::FindListed(std::int64_t handle, std::string_view key) const {
  std::optional<rfm_Entry> const found = Find(handle, key);
  if (found || !database.HasEntryIndex()) {
    return found;
  }
  rfm_ScopeGuard const scope(database.Connection());
  if (std::optional<rfm_Entry> const missed =
          database.entryMap.Find(database.Connection(), *this, handle, key)) {
    database.ThrowDamagedEntry(handle, missed->position,
                               ", '" + utl_PrintableStart(key) + "', is missing from the index of entries");
  }
  return std::nullopt;
}

int rfm_Entries::Count(std::int64_t handle) const {
  rfm_Connection& connection = database.Connection();
  rfm_ScopeGuard const scope(connection);
  // A column that the index of keys does not have: a damaged index has other entries than the walk.
  rfm_Run run(connection, database.countEntries,
              std::string_view("SELECT count(ClassID) FROM ddr_entry WHERE handle = ?1"));
  run.Bind(1, handle);
  run.Step();
  return static_cast<int>(
      database.CheckedInteger(run.Get(), 0, 0, mostInt, "a collection has more entries than can be"));
}

void rfm_Entries::Append(std::int64_t handle, std::string_view key, unsigned classId, int oid) {
  rfm_Connection& connection = database.Connection();
  connection.WantTransaction();
  if (!utl_IsUtf8(key) || key.find('\0') != std::string_view::npos) {
    rfm_throw(rfm_ErrorKind::Other, database.FileName(), {},
              "the key '" + utl_PrintableStart(key) + "' is not UTF-8", "Give the name in UTF-8");
  }
  if (database.appendEpoch != connection.Epoch() || database.appendHandle != handle) {
    database.appendPosition = lastPlace(database, handle) + 1;
    database.appendHandle = handle;
    database.appendEpoch = connection.Epoch();
  }
  if (database.appendPosition >= mostInt - 1) {
    rfm_throw(rfm_ErrorKind::Full, database.FileName(), {}, "a collection has no room for more entries",
              "Start a new file");
  }
  rfm_Run run(connection, database.appendEntry,
              std::string_view("INSERT INTO ddr_entry VALUES(?1, ?2, ?3, ?4, ?5)"));
  run.Bind(1, handle);
  run.Bind(2, database.appendPosition);
  run.Bind(3, key);
  run.Bind(4, classId);
  run.Bind(5, oid);
  run.Change();
  if (connection.nextHandle != 0 && handle >= connection.nextHandle) {
    connection.nextHandle = handle < std::numeric_limits<std::int64_t>::max() ? handle + 1 : handle;
  }
  ++database.appendPosition;
  database.entriesAppended = true;
}

// Makes the index by key, without which SQLite would walk over the collection.
// @returns false when there are no entries
bool rfm_Entries::WantIndex() const {
  if (!database.HasEntryIndex()) {
    rfm_Statement statement;
    rfm_Run run(database.Connection(), statement, std::string_view("SELECT 1 FROM ddr_entry LIMIT 1"));
    if (!run.Step()) {
      return false;
    }
  }
  database.WantEntryIndex();
  return true;
}

bool rfm_Entries::Update(std::int64_t handle, std::string_view key, unsigned classId, int oid) {
  rfm_Connection& connection = database.Connection();
  connection.WantTransaction();
  if (!WantIndex()) {
    return false;
  }
  rfm_Run run(connection, database.updateEntry,
              std::string_view("UPDATE ddr_entry INDEXED BY ddr_entry_key SET ClassID = ?3, OID = ?4 "
                               "WHERE handle = ?1 AND Key = ?2"));
  run.Bind(1, handle);
  run.Bind(2, key);
  run.Bind(3, classId);
  run.Bind(4, oid);
  return run.Change() > 0;
}

bool rfm_Entries::Remove(std::int64_t handle, std::string_view key) {
  rfm_Connection& connection = database.Connection();
  connection.WantTransaction();
  if (!WantIndex()) {
    return false;
  }
  rfm_Run run(
      connection, database.removeEntry,
      std::string_view("DELETE FROM ddr_entry INDEXED BY ddr_entry_key WHERE handle = ?1 AND Key = ?2"));
  run.Bind(1, handle);
  run.Bind(2, key);
  database.appendEpoch = 0;
  return run.Change() > 0;
}

void rfm_Entries::Clear(std::int64_t handle) {
  rfm_Connection& connection = database.Connection();
  connection.WantTransaction();
  rfm_Run run(connection, database.clearEntries, std::string_view("DELETE FROM ddr_entry WHERE handle = ?1"));
  run.Bind(1, handle);
  database.appendEpoch = 0;
  run.Change();
}
