// plain.cpp: records by plain SQLite calls.
#include "plain.h"

#include "ours.h"

#include <cstring>
#include <stdexcept>

namespace {

std::string bytes(sqlite3_stmt* statement, int column) {
  auto const* const start = static_cast<char const*>(sqlite3_column_blob(statement, column));
  return std::string(start, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

PlainRecord recordOf(sqlite3_stmt* statement) {
  return {sqlite3_column_int64(statement, 0), bytes(statement, 1), bytes(statement, 2),
          sqlite3_column_int64(statement, 3)};
}

} // namespace

void PlainFile::Want(bool good) const {
  if (!good) {
    throw std::runtime_error(std::string("plain SQLite: ") + sqlite3_errmsg(database));
  }
}

void PlainFile::Run(char const* sql) {
  Want(sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

sqlite3_stmt* PlainFile::Prepare(sqlite3_stmt*& statement, char const* sql) {
  if (statement == nullptr) {
    Want(sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) == SQLITE_OK);
  }
  return statement;
}

// What rfm sets on its connections.
PlainFile::PlainFile(std::string const& path, bool forWriting) {
  int const access = forWriting ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
  Want(sqlite3_open_v2(path.c_str(), &database, access | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE,
                       nullptr) == SQLITE_OK);
  sqlite3_busy_timeout(database, 1000);
  Run("PRAGMA mmap_size = 0");
  Run("PRAGMA cell_size_check = on");
  Run("PRAGMA temp_store = memory");
  if (forWriting) {
    Run("PRAGMA synchronous = extra");
    Run("PRAGMA journal_mode = delete");
  }
}

PlainFile::~PlainFile() {
  for (sqlite3_stmt* const statement : {find, walk, insert, update, begin, commit}) {
    sqlite3_finalize(statement);
  }
  sqlite3_close(database);
}

void PlainFile::Make(std::string const& path, std::int64_t count) {
  PlainFile file(path, true);
  file.Run("BEGIN IMMEDIATE");
  file.Run("CREATE TABLE model(\"row\" INTEGER PRIMARY KEY, uid BLOB, name TEXT, contents INTEGER)");
  sqlite3_stmt* const statement = file.Prepare(file.insert, "INSERT INTO model VALUES(?1, ?2, ?3, ?4)");
  for (std::int64_t number = 0; number < count; ++number) {
    std::string const name = recordName(number);
    char identity[16] = {};
    std::memcpy(identity, &number, sizeof number);
    sqlite3_bind_int64(statement, 1, number);
    sqlite3_bind_blob(statement, 2, identity, sizeof identity, nullptr);
    sqlite3_bind_text(statement, 3, name.data(), static_cast<int>(name.size()), nullptr);
    sqlite3_bind_int64(statement, 4, number);
    file.Want(sqlite3_step(statement) == SQLITE_DONE);
    sqlite3_reset(statement);
  }
  file.Run("CREATE UNIQUE INDEX model_name ON model(name)");
  file.Run("COMMIT");
}

std::string const& PlainFile::Saved(std::int64_t count) {
  static std::map<std::int64_t, std::string> files;
  std::string& path = files[count];
  if (path.empty()) {
    std::string const made = benchFolder() + "/plain-" + std::to_string(count) + ".sqlite";
    Make(made, count);
    path = made;
  }
  return path;
}

std::map<std::string, PlainRecord*> PlainFile::ReadNames() {
  std::map<std::string, PlainRecord*> names;
  sqlite3_stmt* const statement = Prepare(walk, "SELECT name FROM model");
  while (sqlite3_step(statement) == SQLITE_ROW) {
    names.emplace(bytes(statement, 0), nullptr);
  }
  Want(sqlite3_reset(statement) == SQLITE_OK);
  return names;
}

PlainRecord PlainFile::Read(std::string const& name) {
  sqlite3_stmt* const statement =
      Prepare(find, "SELECT \"row\", uid, name, contents FROM model WHERE name = ?1");
  sqlite3_bind_text(statement, 1, name.data(), static_cast<int>(name.size()), nullptr);
  Want(sqlite3_step(statement) == SQLITE_ROW);
  PlainRecord const found = recordOf(statement);
  sqlite3_reset(statement);
  return found;
}

std::map<std::string, PlainRecord> PlainFile::ReadAll() {
  std::map<std::string, PlainRecord> records;
  sqlite3_stmt* const statement = Prepare(walk, "SELECT \"row\", uid, name, contents FROM model");
  while (sqlite3_step(statement) == SQLITE_ROW) {
    PlainRecord const record = recordOf(statement);
    records.emplace(record.name, record);
  }
  Want(sqlite3_reset(statement) == SQLITE_OK);
  return records;
}

void PlainFile::Save(std::string const& name) {
  static std::uint64_t lastIdentity = 1000000; // SQLite does not write a row that is as it was
  char identity[16] = {};
  ++lastIdentity;
  std::memcpy(identity, &lastIdentity, sizeof lastIdentity);
  sqlite3_step(Prepare(begin, "BEGIN IMMEDIATE"));
  sqlite3_reset(begin);
  sqlite3_stmt* const statement = Prepare(update, "UPDATE model SET uid = ?1, contents = ?2 WHERE name = ?3");
  sqlite3_bind_blob(statement, 1, identity, sizeof identity, nullptr);
  sqlite3_bind_int64(statement, 2, static_cast<std::int64_t>(lastIdentity));
  sqlite3_bind_text(statement, 3, name.data(), static_cast<int>(name.size()), nullptr);
  Want(sqlite3_step(statement) == SQLITE_DONE);
  sqlite3_reset(statement);
  Want(sqlite3_step(Prepare(commit, "COMMIT")) == SQLITE_DONE);
  sqlite3_reset(commit);
}
