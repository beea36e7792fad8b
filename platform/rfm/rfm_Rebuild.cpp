// rfm_Rebuild.cpp: fills a new file from an older one.
#include "rfm_Rebuild.h"

#include "rfm_DatabaseNode.h"
#include "utl_Utf8.h"

#include <exception>
#include <limits>
#include <sys/stat.h>

namespace {

// Rows between two reports, and SQLite's steps between two questions.
constexpr std::int64_t rowsBetweenReports = 4096;
constexpr int stepsBetweenQuestions = 200000;

// Enough for the tables that a conversion writes side by side [KiB].
constexpr char const* cacheSize = "PRAGMA cache_size = -8192";

constexpr std::string_view retiredName = "retired_rows";

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

std::int64_t count(rfm_DatabaseNode& database, std::string_view table, cow_String const* className) {
  rfm_Connection& connection = database.Connection();
  rfm_ScopeGuard const scope(connection);
  rfm_Statement statement;
  rfm_Run run(connection, statement, "SELECT count(*) FROM " + rfm_quote(table), {className});
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

std::vector<std::string> rfm_Rebuild::ForeignObjects(rfm_Database const& database) {
  rfm_DatabaseNode& node = *database.node;
  rfm_ScopeGuard const scope(node.Connection());
  rfm_Statement statement;
  rfm_Run run(node.Connection(), statement,
              std::string_view("SELECT type, name FROM sqlite_schema AS thing "
                               "WHERE type <> 'index' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\' "
                               "AND name NOT IN ('ddr_header', 'ddr_class', 'ddr_attribute', 'ddr_entry') "
                               "AND NOT EXISTS (SELECT 1 FROM ddr_class WHERE \"Class Table\" = "
                               "thing.name COLLATE NOCASE) ORDER BY rowid"));
  std::vector<std::string> found;
  while (run.Step()) {
    std::string text;
    for (int column = 0; column < 2; ++column) {
      auto const* const value = reinterpret_cast<char const*>(sqlite3_column_text(run.Get(), column));
      std::string const printable = utl_Printable(value ? value : "");
      text += column == 0 ? printable + " '" : printable + "'";
    }
    found.push_back(std::move(text));
  }
  return found;
}

std::int64_t rfm_Rebuild::CopyRows(unsigned typeId, Watch const& watch) {
  to->Connection().WantTransaction();
  std::shared_ptr<rfm_TableShape> const source = from->ShapeOf(typeId);
  if (!source->Exists()) {
    return 0;
  }
  source->WantColumns();
  to->MakeTable(typeId, source->layout->columns);
  std::shared_ptr<rfm_TableShape> const target = to->ShapeOf(typeId);
  target->WantColumns();
  return Copy(source->SelectSql(" ORDER BY " + rfm_quote(rfm_RowColumn)), target->InsertSql(),
              &source->className, static_cast<int>(source->layout->columns.size()) + 2, watch);
}

std::int64_t rfm_Rebuild::CopyEntries(Watch const& watch) {
  to->Connection().WantTransaction();
  std::int64_t const copied =
      Copy("SELECT handle, position, Key, ClassID, OID FROM ddr_entry ORDER BY handle, position",
           "INSERT INTO ddr_entry VALUES(?1, ?2, ?3, ?4, ?5)", nullptr, 5, watch);
  rfm_Statement readStatement;
  rfm_Run read(from->Connection(), readStatement, std::string_view("SELECT next_handle FROM ddr_header"));
  if (read.Step()) {
    rfm_Statement writeStatement;
    rfm_Run write(to->Connection(), writeStatement,
                  std::string_view("UPDATE ddr_header SET next_handle = ?1"));
    write.Bind(1, from->CheckedInteger(read.Get(), 0, 1, std::int64_t{1} << 62,
                                       "the next collection handle in its header is not valid"));
    write.Change();
  }
  to->entriesAppended = to->entriesAppended || copied > 0;
  return copied;
}

std::int64_t rfm_Rebuild::Copy(std::string const& select, std::string const& insert,
                               cow_String const* className, int columns, Watch const& watch) {
  rfm_Statement selectStatement;
  rfm_Statement insertStatement;
  std::int64_t last = -1;
  std::int64_t copied = 0;
  selectStatement.Prepare(from->Connection(), select);
  insertStatement.Prepare(to->Connection(), insert);
  sqlite3_stmt* const reader = selectStatement.Get();
  sqlite3_stmt* const writer = insertStatement.Get();
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(reader)) == SQLITE_ROW) {
    if (className) {
      last = sqlite3_column_int64(reader, 0);
      if (last < 0 || last >= std::numeric_limits<int>::max()) {
        from->ThrowDamaged("a row number that cannot be is stored there", {className, last});
      }
      int const uidType = sqlite3_column_type(reader, 1);
      if (uidType != SQLITE_NULL &&
          (uidType != SQLITE_BLOB || sqlite3_column_bytes(reader, 1) != static_cast<int>(sizeof(rfm_Uid)))) {
        from->ThrowDamaged("an identity that is not one is stored there", {className, last, rfm_UidColumn});
      }
    }
    for (int column = 0; column < columns; ++column) {
      int const bound = sqlite3_bind_value(writer, column + 1, sqlite3_column_value(reader, column));
      if (bound != SQLITE_OK) {
        to->Connection().Fail(bound, {className, last});
      }
    }
    sqlite3_step(writer);
    int const written = sqlite3_reset(writer);
    if (written != SQLITE_OK) {
      to->Connection().Fail(written, {className, last});
    }
    if (++copied % rowsBetweenReports == 0 && watch) {
      watch(copied);
    }
  }
  if (result != SQLITE_DONE) {
    from->Connection().Fail(result, {className, className ? last + 1 : -1});
  }
  from->Connection().statistics.rowsRead += static_cast<std::uint64_t>(copied);
  to->Connection().statistics.rowsWritten += static_cast<std::uint64_t>(copied);
  return copied;
}

void rfm_Rebuild::ChangeClass(rfm_ClassEntry const& description) {
  to->ChangeClass(description);
}

rfm_Table rfm_Rebuild::RetireTable(unsigned typeId) {
  std::string name(retiredName);
  for (std::size_t number = 1; to->SqlNameIsTaken(name); ++number) {
    name = std::string(retiredName) + std::to_string(number);
  }
  std::shared_ptr<rfm_TableShape> const shape = to->RetireTable(typeId, cow_String(name));
  retired.push_back(shape);
  return rfm_Table(std::make_shared<rfm_TableNode>(to, shape));
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
