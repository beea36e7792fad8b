// rfm_Rebuild.cpp: fills a new file from an older one.
#include "rfm_Rebuild.h"

#include "rfm_DatabaseNode.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <set>
#include <sys/stat.h>

namespace {

// Rows between two reports, and SQLite's steps between two questions.
constexpr std::int64_t rowsBetweenReports = 16384;
constexpr int stepsBetweenQuestions = 200000;

// Enough for the tables that a conversion writes side by side [KiB].
constexpr char const* cacheSize = "PRAGMA cache_size = -8192";

// A new file may take so much, and so often what the old one takes [byte]: tables that a conversion makes of
// few fields, their indexes, and the rows that it keeps until its end take a part of it.
constexpr sqlite3_int64 smallestGrowth = 64 * 1024 * 1024;
constexpr sqlite3_int64 growthForEachByte = 16;

// The old file beside the new one, in the SQL of the new one's connection.
constexpr std::string_view attachedName = "old.";
static_assert(attachedName.starts_with(rfm_Connection::attachedSchema));

constexpr std::string_view interimName = "retired_rows";

// Conditions on sqlite_schema AS thing: what the format describes; tables of others that can be copied. Names
// that begin like ours are kept for ours.
constexpr char const* isOurs = "name IN ('ddr_header', 'ddr_class', 'ddr_attribute', 'ddr_entry') OR EXISTS "
                               "(SELECT 1 FROM ddr_class WHERE "
                               "\"Class Table\" = thing.name COLLATE NOCASE)";
constexpr char const* isCopied =
    "type = 'table' AND rootpage > 0 AND sql LIKE 'CREATE TABLE%' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' "
    "AND name NOT LIKE 'ddr\\_%' ESCAPE '\\' AND name NOT LIKE 'class\\_%' ESCAPE '\\' "
    "AND name NOT LIKE 'retired\\_rows%' ESCAPE '\\'";

// The functions that tables of others may use while they are copied: what these give is no longer than what
// they get.
constexpr std::array<std::string_view, 28> harmlessFunctions{
    "abs",      "coalesce",  "date",       "datetime",  "glob",   "ifnull",  "iif",
    "instr",    "json_type", "json_valid", "julianday", "length", "like",    "lower",
    "ltrim",    "max",       "min",        "nullif",    "round",  "rtrim",   "sign",
    "strftime", "substr",    "time",       "trim",      "typeof", "unicode", "upper"};

int refuseOtherFunctions(void*, int action, char const*, char const* function, char const*, char const*) {
  bool const isHarmless =
      action != SQLITE_FUNCTION ||
      std::any_of(harmlessFunctions.begin(), harmlessFunctions.end(), [function](std::string_view harmless) {
        return sqlite3_stricmp(function, harmless.data()) == 0;
      });
  return isHarmless ? SQLITE_OK : SQLITE_DENY;
}

/// While tables of others are copied, what they define can make nothing large and nothing slow.
class CarefulCopy {
public:
  CarefulCopy(rfm_Connection& copying, sqlite3_int64 longestValue)
      : connection(copying),
        lengthBefore(sqlite3_limit(copying.Database(), SQLITE_LIMIT_LENGTH,
                                   static_cast<int>(std::clamp<sqlite3_int64>(
                                       longestValue, shortestLimit, std::numeric_limits<int>::max())))) {
    connection.Execute("PRAGMA ignore_check_constraints = on"); // they held for the rows that are there
    sqlite3_set_authorizer(connection.Database(), refuseOtherFunctions, nullptr);
  }
  ~CarefulCopy() {
    sqlite3_set_authorizer(connection.Database(), nullptr, nullptr);
    sqlite3_limit(connection.Database(), SQLITE_LIMIT_LENGTH, lengthBefore);
  }
  CarefulCopy(CarefulCopy const&) = delete;
  CarefulCopy& operator=(CarefulCopy const&) = delete;

private:
  static constexpr sqlite3_int64 shortestLimit = 65536; // [byte] of a statement, too
  rfm_Connection& connection;
  int lengthBefore;
};

struct Question {
  std::function<void()> const& alive;
  std::exception_ptr thrown;
};

int ask(void* given) {
  auto& question = *static_cast<Question*>(given);
  try {
    question.alive();
    return 0;
  } catch (...) {
    question.thrown = std::current_exception();
    return 1;
  }
}

// A path as SQLite takes it together with the wish to read only.
std::string readOnlyAddress(std::string_view path) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string address = "file:";
  for (char const letter : path) {
    auto const byte = static_cast<unsigned char>(letter);
    bool const isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                         (byte >= '0' && byte <= '9') || byte == '/' || byte == '.' || byte == '_';
    if (isPlain) {
      address += letter;
    } else {
      address += {'%', digits[byte >> 4U], digits[byte & 15U]};
    }
  }
  return address + "?mode=ro";
}

// Opens the old file by its name for a second time. Another file may have that name by now: while neither of
// the two that are open has lost it, they are one.
void attachSource(rfm_Connection& made, rfm_Connection& source) {
  std::string_view const path = sqlite3_db_filename(source.Database(), "main");
  int hasMoved = path.empty() ? 1 : 0; // it goes on in memory
  if (hasMoved == 0) {
    made.Attach(readOnlyAddress(path), source.ShownName());
    sqlite3_file_control(made.Database(), rfm_Connection::attachedSchema, SQLITE_FCNTL_HAS_MOVED, &hasMoved);
  }
  if (hasMoved != 0 || source.HasMoved()) {
    source.Fail(SQLITE_READONLY_DBMOVED);
  }
}

std::int64_t count(rfm_DatabaseNode& database, std::string_view table, cow_String const* className) {
  rfm_Connection& connection = database.Connection();
  rfm_ScopeGuard const scope(connection);
  rfm_Statement statement;
  // An index would be shorter, but a damaged one has other rows.
  rfm_Run run(connection, statement, "SELECT count(*) FROM " + rfm_quote(table) + " NOT INDEXED",
              {className});
  run.Step();
  return sqlite3_column_int64(run.Get(), 0);
}

} // namespace

void rfm_Rebuild::WantOtherFile(rfm_File const& source, cow_String const& name) {
  struct stat one {};
  struct stat other {};
  if (stat(source.FileName().Text(), &one) == 0 && stat(name.Text(), &other) == 0 &&
      one.st_dev == other.st_dev && one.st_ino == other.st_ino) {
    rfm_throw(rfm_ErrorKind::Other, name, {}, "it is the file that is to be converted",
              "Choose another name for the new file");
  }
}

rfm_Rebuild::rfm_Rebuild(rfm_Database const& source, rfm_Database& made) : from(source.node), to(made.node) {
  rfm_Connection& connection = to->Connection();
  if (connection.InTransaction() || !rfm_FileNode::Of(to->File()).IsUnpublished()) {
    nex_Exception::Throw(nex_AssertException("!InTransaction() && IsUnpublished()"),
                         "platform/rfm/rfm_Rebuild", __LINE__);
  }
  connection.Execute(cacheSize);
  connection.Execute("PRAGMA temp_store = file"); // sorting for an index must not take all memory
  connection.LimitGrowth(smallestGrowth + growthForEachByte * from->Connection().FileSize());
  attachSource(connection, from->Connection());
}

rfm_Rebuild::~rfm_Rebuild() = default;

std::int64_t rfm_Rebuild::CountRows(rfm_Database const& database, unsigned typeId) {
  rfm_ScopeGuard const scope(database.node->Connection());
  database.node->Refresh();
  std::shared_ptr<rfm_TableShape> const shape = database.node->ShapeOf(typeId);
  shape->WantColumns();
  return shape->Exists() ? count(*database.node, shape->table.View(), &shape->className) : 0;
}

std::int64_t rfm_Rebuild::CountEntries(rfm_Database const& database) {
  return count(*database.node, "ddr_entry", nullptr);
}

// Whether the file holds only what the format describes: seen sooner than what else there is.
bool rfm_Rebuild::HoldsOnlyOurs(rfm_DatabaseNode& database) {
  std::set<std::string_view> ours(rfm_FixedTables.begin(), rfm_FixedTables.end());
  for (rfm_ClassEntry const& entry : database.classes) {
    ours.insert(entry.table.View());
  }
  rfm_Statement statement;
  rfm_Run run(database.Connection(), statement,
              std::string_view("SELECT type, name FROM sqlite_schema WHERE type <> 'index'"));
  bool onlyOurs = true;
  while (onlyOurs && run.Step()) {
    onlyOurs = rfm_columnText(run.Get(), 0) == "table" && ours.contains(rfm_columnText(run.Get(), 1));
  }
  return onlyOurs;
}

std::vector<std::string> rfm_Rebuild::FurtherThings(rfm_Database const& database) {
  rfm_ScopeGuard const scope(database.node->Connection());
  if (HoldsOnlyOurs(*database.node)) {
    return {};
  }
  rfm_Statement statement;
  rfm_Run run(database.node->Connection(), statement,
              "SELECT type, name FROM sqlite_schema AS thing WHERE type <> 'index' AND name NOT LIKE "
              "'sqlite\\_%' ESCAPE '\\' AND NOT (type = 'table' AND (" +
                  std::string(isOurs) + ")) AND NOT (" + isCopied + ") ORDER BY rowid");
  std::vector<std::string> found;
  while (run.Step()) {
    found.push_back(std::string(rfm_columnText(run.Get(), 0)) + " '" +
                    utl_PrintableStart(rfm_columnText(run.Get(), 1)) + "'");
  }
  return found;
}

std::vector<std::string> rfm_Rebuild::CopyFurtherTables(std::function<void()> const& alive) {
  std::vector<std::string> names;
  if (HoldsOnlyOurs(*from)) {
    return names;
  }
  {
    rfm_Statement statement;
    rfm_Run run(from->Connection(), statement,
                "SELECT name FROM sqlite_schema AS thing WHERE " + std::string(isCopied) + " AND NOT (" +
                    isOurs + ") ORDER BY rowid");
    while (run.Step()) {
      names.emplace_back(rfm_columnText(run.Get(), 0));
    }
  }
  std::vector<std::string> failed = FurtherThings(rfm_Database(from));
  CarefulCopy const careful(to->Connection(), from->Connection().FileSize());
  for (std::string const& name : names) {
    bool copied = false;
    WhileAsking([&] { copied = CopyFurtherTable(name); }, alive);
    if (!copied) {
      TryToExecute("DROP TABLE IF EXISTS main." + rfm_quote(name));
      failed.push_back("table '" + utl_PrintableStart(name) + "'");
      continue;
    }
    for (auto const& [index, sql] : DefinitionsOf(name, "index")) {
      bool made = false;
      WhileAsking([&, &make = sql] { made = TryToExecute(make); }, alive);
      if (!made) {
        failed.push_back("index '" + utl_PrintableStart(index) + "'");
      }
    }
  }
  return failed;
}

// Names and SQL texts of the tables, or the indexes, of one name.
std::vector<std::pair<std::string, std::string>> rfm_Rebuild::DefinitionsOf(std::string const& table,
                                                                            std::string_view type) const {
  rfm_Statement statement;
  rfm_Run run(from->Connection(), statement,
              std::string_view("SELECT name, sql FROM sqlite_schema WHERE tbl_name = ?1 AND sql IS NOT NULL "
                               "AND type = ?2 ORDER BY rowid"));
  run.Bind(1, std::string_view(table));
  run.Bind(2, type);
  std::vector<std::pair<std::string, std::string>> found;
  while (run.Step()) {
    found.emplace_back(rfm_columnText(run.Get(), 0), rfm_columnText(run.Get(), 1));
  }
  return found;
}

// Makes the table as its writer did. The row number is copied by a name that no column hides.
bool rfm_Rebuild::CopyFurtherTable(std::string const& name) {
  std::string columns;
  std::vector<std::string> rowNames{"rowid", "_rowid_", "oid"};
  bool hasRowNumber = false;
  {
    rfm_Statement statement;
    rfm_Run run(
        from->Connection(), statement,
        std::string_view("SELECT name, hidden, (SELECT wr FROM pragma_table_list(?1) WHERE schema = "
                         "'main'), type = 'INTEGER' COLLATE NOCASE AND pk = 1 AND (SELECT count(*) FROM "
                         "pragma_table_info(?1) WHERE pk > 0) = 1 FROM pragma_table_xinfo(?1)"));
    run.Bind(1, std::string_view(name));
    hasRowNumber = true;
    while (run.Step()) {
      std::string const column(rfm_columnText(run.Get(), 0));
      std::erase_if(rowNames, [&](std::string const& rowName) {
        return sqlite3_stricmp(rowName.c_str(), column.c_str()) == 0;
      });
      bool const isComputed = sqlite3_column_int(run.Get(), 1) != 0;
      bool const isRowNumber = sqlite3_column_int(run.Get(), 3) != 0;
      hasRowNumber = hasRowNumber && sqlite3_column_int(run.Get(), 2) == 0 && !isRowNumber;
      if (!isComputed) {
        columns += (columns.empty() ? "" : ", ") + rfm_quote(column);
      }
    }
  }
  if (hasRowNumber && !rowNames.empty()) {
    columns = rowNames.front() + ", " + columns;
  }
  auto const definitions = DefinitionsOf(name, "table");
  return definitions.size() == 1 && TryToExecute(definitions.front().second) &&
         TryToExecute("INSERT OR ABORT INTO main." + rfm_quote(name) + "(" + columns + ") SELECT " + columns +
                      " FROM " + std::string(attachedName) + rfm_quote(name));
}

// Runs one statement of the old file's own.
// @returns whether it could be run; what is wrong with the device, or with the pages of the old file, throws
bool rfm_Rebuild::TryToExecute(std::string const& sql) {
  rfm_Connection& connection = to->Connection();
  sqlite3_stmt* statement = nullptr;
  char const* rest = nullptr;
  connection.AllowWork();
  int result = sqlite3_prepare_v2(connection.Database(), sql.c_str(), -1, &statement, &rest);
  bool const isOne = result == SQLITE_OK && *rest == 0;
  if (isOne) {
    connection.Advance(statement);
  }
  int const ended = sqlite3_finalize(statement);
  result = result == SQLITE_OK ? ended : result;
  switch (result & 0xff) {
  case SQLITE_FULL:
  case SQLITE_IOERR:
  case SQLITE_CANTOPEN:
  case SQLITE_CORRUPT:
  case SQLITE_NOMEM:
  case SQLITE_INTERRUPT:
    connection.Fail(result);
  default:
    return isOne && result == SQLITE_OK;
  }
}

void rfm_Rebuild::CopyRows(unsigned typeId, std::int64_t rows, Watch const& watch) {
  to->Connection().WantTransaction();
  std::shared_ptr<rfm_TableShape> const source = from->ShapeOf(typeId);
  if (!source->Exists()) {
    return;
  }
  source->WantColumns();
  CheckRowNumbers(*source);
  to->MakeTable(typeId, source->layout->columns);
  std::shared_ptr<rfm_TableShape> const target = to->ShapeOf(typeId);
  std::string const rowColumn = rfm_quote(rfm_RowColumn);
  std::string columns = rowColumn + ", " + rfm_quote(rfm_UidColumn);
  for (cow_String const& column : source->layout->columns) {
    columns += ", " + rfm_quote(column.View());
  }
  Move move;
  move.className = &source->className;
  move.keys = 1;
  move.insert = "INSERT OR ABORT INTO main." + rfm_quote(target->table.View()) + "(" + columns + ") SELECT " +
                columns + " FROM " + std::string(attachedName) + rfm_quote(source->table.View()) + " WHERE " +
                rowColumn + " > ?1 ORDER BY " + rowColumn + " LIMIT ?2";
  move.last = "SELECT max(" + rowColumn + ") FROM main." + rfm_quote(target->table.View());
  move.walk = "SELECT " + columns + " FROM " + rfm_quote(source->table.View()) + " ORDER BY " + rowColumn;
  Copy(move, rows, watch);
}

// SQLite finds the first and the last row without a walk.
void rfm_Rebuild::CheckRowNumbers(rfm_TableShape const& shape) const {
  std::string const rowColumn = rfm_quote(rfm_RowColumn);
  for (char const* const end : {"min(", "max("}) {
    rfm_Statement statement;
    rfm_Run run(from->Connection(), statement,
                "SELECT " + std::string(end) + rowColumn + ") FROM " + rfm_quote(shape.table.View()),
                {&shape.className});
    run.Step();
    std::int64_t const row = sqlite3_column_int64(run.Get(), 0);
    if (row < 0 || row >= std::numeric_limits<int>::max()) {
      from->ThrowDamaged("a row number that cannot be is stored there", {&shape.className, row});
    }
  }
}

void rfm_Rebuild::CopyEntries(std::int64_t entries, Watch const& watch) {
  to->Connection().WantTransaction();
  Move move;
  move.keys = 2;
  move.insert = "INSERT OR ABORT INTO main.ddr_entry SELECT handle, position, Key, ClassID, OID FROM " +
                std::string(attachedName) +
                "ddr_entry WHERE (handle, position) > (?1, ?2) AND typeof(handle) = 'integer' "
                "AND typeof(position) = 'integer' ORDER BY handle, position LIMIT ?3";
  move.last = "SELECT handle, position FROM main.ddr_entry ORDER BY handle DESC, position DESC LIMIT 1";
  move.walk = "SELECT handle, position, Key, ClassID, OID FROM ddr_entry ORDER BY handle, position";
  Copy(move, entries, watch);
  rfm_Statement readStatement;
  rfm_Run read(from->Connection(), readStatement, std::string_view("SELECT next_handle FROM ddr_header"));
  if (read.Step()) {
    rfm_Statement writeStatement;
    rfm_Run write(to->Connection(), writeStatement,
                  std::string_view("UPDATE main.ddr_header SET next_handle = ?1"));
    write.Bind(1, from->CheckedInteger(read.Get(), 0, 1, std::int64_t{1} << 62,
                                       "the next collection handle in its header is not valid"));
    write.Change();
  }
  to->entriesAppended = to->entriesAppended || entries > 0;
}

// Portion by portion inside SQLite. The key of the last row of one portion begins the next.
void rfm_Rebuild::Copy(Move const& move, std::int64_t rows, Watch const& watch) {
  rfm_Connection& connection = to->Connection();
  rfm_Statement insertStatement;
  rfm_Statement lastStatement;
  rfm_Subject const subject{move.className};
  std::int64_t copied = 0;
  for (std::int64_t moved = rowsBetweenReports; moved == rowsBetweenReports;) {
    rfm_Run insert(connection, insertStatement, move.insert, subject);
    if (copied == 0) {
      for (int key = 0; key < move.keys; ++key) {
        insert.Bind(key + 1, move.keys == 1 ? std::int64_t{-1} : std::numeric_limits<std::int64_t>::min());
      }
    } else {
      rfm_Run last(connection, lastStatement, move.last, subject);
      last.Step();
      for (int key = 0; key < move.keys; ++key) {
        sqlite3_bind_value(insert.Get(), key + 1, sqlite3_column_value(last.Get(), key));
      }
    }
    insert.Bind(move.keys + 1, rowsBetweenReports);
    try {
      moved = insert.Change();
    } catch (rfm_Exception const&) {
      BlameSource(move);
      throw;
    }
    copied += moved;
    from->Connection().statistics.rowsRead += static_cast<std::uint64_t>(moved);
    if (watch && moved > 0) {
      watch(copied);
    }
  }
  if (copied != rows) {
    BlameSource(move);
    from->ThrowDamaged(std::to_string(rows) + " of its " + (move.className ? "rows" : "entries") +
                           " are counted, and " + std::to_string(copied) + " are found",
                       subject);
  }
}

// Says what is wrong with an entry that the new file does not take.
// @param entry a row of handle, position, Key, ClassID and OID
void rfm_Rebuild::BlameEntry(sqlite3_stmt* entry) const {
  if (sqlite3_column_type(entry, 0) != SQLITE_INTEGER || sqlite3_column_type(entry, 1) != SQLITE_INTEGER) {
    from->ThrowDamaged("an entry has no valid place in a collection");
  }
  if (sqlite3_column_type(entry, 3) == SQLITE_NULL || sqlite3_column_type(entry, 4) == SQLITE_NULL) {
    from->ThrowDamagedEntry(sqlite3_column_int64(entry, 0), sqlite3_column_int64(entry, 1),
                            " refers to nothing that can be");
  }
}

// What is wrong with a copy does not tell which of the two files is damaged: walks over what was to be read.
void rfm_Rebuild::BlameSource(Move const& move) const {
  rfm_Statement statement;
  statement.Prepare(from->Connection(), move.walk);
  rfm_Measure measure(from->Connection());
  measure.Begin();
  std::int64_t row = -1;
  std::optional<std::pair<std::int64_t, std::int64_t>> before;
  int result = SQLITE_ROW;
  while ((result = from->Connection().Advance(statement.Get())) == SQLITE_ROW) {
    row = sqlite3_column_int64(statement.Get(), 0);
    rfm_Subject const subject{move.className, move.className ? row : -1};
    if (!move.className) {
      BlameEntry(statement.Get());
    }
    std::pair<std::int64_t, std::int64_t> const place(
        row, move.keys > 1 ? sqlite3_column_int64(statement.Get(), 1) : 0);
    if (before && place <= *before) { // pages that lead in circles
      from->ThrowDamaged(move.className ? "its rows are not in order" : "its entries are not in order",
                         subject);
    }
    before = place;
    std::uint64_t bytes = 0;
    for (int column = 0; column < sqlite3_column_count(statement.Get()); ++column) {
      int const type = sqlite3_column_type(statement.Get(), column);
      bytes += type == SQLITE_TEXT || type == SQLITE_BLOB
                   ? static_cast<unsigned>(sqlite3_column_bytes(statement.Get(), column))
                   : 0U;
    }
    if (measure.IsExceededBy(bytes)) {
      from->ThrowDamaged(rfm_sharedPages, subject);
    }
  }
  if (result != SQLITE_DONE) {
    from->Connection().Fail(result, {move.className, move.className ? row + 1 : -1});
  }
}

void rfm_Rebuild::ChangeClass(rfm_ClassEntry const& description) {
  to->ChangeClass(description);
}

cow_String rfm_Rebuild::FreeInterimName() const {
  std::string name(interimName);
  for (std::size_t number = 1; to->SqlNameIsTaken(name); ++number) {
    name = std::string(interimName) + std::to_string(number);
  }
  return cow_String(name);
}

rfm_Table rfm_Rebuild::MakeInterimTable(unsigned typeId) {
  to->Connection().WantTransaction();
  to->Refresh();
  if (!to->ShapeOf(typeId)->Exists()) {
    to->MakeTable(typeId, rfm_columnsOf(*to->FindClass(typeId)), FreeInterimName());
  }
  return to->Table(typeId);
}

rfm_Table rfm_Rebuild::RetireTable(unsigned typeId) {
  cow_String const& name = to->ShapeOf(typeId)->table;
  bool const isInterim = name.View().starts_with(interimName);
  std::shared_ptr<rfm_TableShape> const shape =
      to->RetireTable(typeId, isInterim ? cow_String(name) : FreeInterimName());
  retired.push_back(shape);
  return rfm_Table(std::make_shared<rfm_TableNode>(to, shape));
}

rfm_Table rfm_Rebuild::RetiredTable(unsigned typeId) const {
  for (std::shared_ptr<rfm_TableShape> const& shape : retired) {
    if (shape->typeId == typeId) {
      return rfm_Table(std::make_shared<rfm_TableNode>(to, shape));
    }
  }
  nex_Exception::Throw(nex_AssertException("the table is retired"), "platform/rfm/rfm_Rebuild", __LINE__);
}

void rfm_Rebuild::DropRetired() {
  to->Connection().WantTransaction();
  for (std::shared_ptr<rfm_TableShape> const& shape : retired) {
    std::string const sql = "DROP TABLE " + rfm_quote(shape->table.View());
    shape->Forget();
    to->Connection().Execute(sql.c_str());
    shape->table = cow_String();
  }
  retired.clear();
}

void rfm_Rebuild::WhileAsking(std::function<void()> const& work, std::function<void()> const& alive) {
  sqlite3* const database = to->Connection().Database();
  Question question{alive, nullptr};
  sqlite3_progress_handler(database, stepsBetweenQuestions, ask, &question);
  try {
    work();
  } catch (...) {
    sqlite3_progress_handler(database, 0, nullptr, nullptr);
    if (question.thrown) {
      std::rethrow_exception(question.thrown);
    }
    throw;
  }
  sqlite3_progress_handler(database, 0, nullptr, nullptr);
}
