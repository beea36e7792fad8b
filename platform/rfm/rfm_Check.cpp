// rfm_Check.cpp: looking over a file as a whole.
#include "rfm_Check.h"

#include "rfm_DatabaseNode.h"
#include "rfm_FileNode.h"
#include "utl_Utf8.h"

#include <limits>
#include <utility>

namespace {

// More would say no more about a file that is damaged.
constexpr std::size_t mostPageFaults = 50;

/// One of SQLite's checks over all that this process can use.
/// @param pragma "integrity_check", or "quick_check", which does not compare indexes with their tables
std::vector<std::string> pageFaults(rfm_DatabaseNode& node, std::string const& pragma, std::size_t most) {
  constexpr std::string_view title = "*** in database main ***\n";
  std::vector<std::string> faults;
  auto const check = [&](std::string const& part) {
    rfm_Statement statement;
    rfm_Run run(node.Connection(), statement, "PRAGMA " + pragma + "(" + part + ")");
    while (run.Step()) {
      std::string_view fault = rfm_columnText(run.Get(), 0);
      if (fault.starts_with(title)) {
        fault.remove_prefix(title.size());
      }
      if (fault != "ok") {
        faults.emplace_back(fault);
      }
    }
  };
  if (node.AllTablesArePlain()) {
    check(std::to_string(most));
  } else { // the others would be computed with what the file says
    for (cow_String const& table : node.PlainTables()) {
      if (faults.size() < most) {
        check(rfm_quote(table.View()));
      }
    }
  }
  return faults;
}

// SQLite's check lists a page that it had no memory for, or that was not delivered, like a damaged one.
// What is damaged is so again.
std::vector<std::string> lastingPageFaults(rfm_DatabaseNode& node, std::string const& pragma,
                                           std::size_t most) {
  rfm_ScopeGuard const scope(node.Connection());
  std::vector<std::string> faults = pageFaults(node, pragma, most);
  for (std::vector<std::string> before; !faults.empty() && faults != before;) {
    node.Connection().CheckDevice();
    before = std::exchange(faults, pageFaults(node, pragma, most));
  }
  return faults;
}

} // namespace

std::vector<std::string> rfm_Database::CheckPages() const {
  return lastingPageFaults(*node, "integrity_check", mostPageFaults);
}

void rfm_Database::WantSoundPages() const {
  std::vector<std::string> const faults = lastingPageFaults(*node, "quick_check", 1);
  if (!faults.empty()) {
    node->ThrowDamaged("its pages are damaged: " + utl_PrintableStart(faults.front()));
  }
}

std::vector<rfm_MissingIndex> rfm_Database::MissingIndexes() const {
  rfm_Connection& connection = node->Connection();
  rfm_ScopeGuard const scope(connection);
  rfm_Statement statement;
  auto const isMissing = [&](std::string_view table, std::string_view column) {
    rfm_Run run(
        connection, statement,
        std::string_view("SELECT 1 FROM sqlite_schema AS thing WHERE type = 'table' AND name = ?1 "
                         "COLLATE NOCASE AND EXISTS (SELECT 1 FROM pragma_table_info(?1) WHERE name = "
                         "?2) AND NOT EXISTS (SELECT 1 FROM pragma_index_list(?1) AS list, "
                         "pragma_index_info(list.name) AS field WHERE field.name = ?2)"));
    run.Bind(1, table);
    run.Bind(2, column);
    return run.Step();
  };
  std::vector<rfm_MissingIndex> missing;
  bool const hasEntryIndex = node->HasIndex("ddr_entry", rfm_makeEntryIndex) || node->HasEntryIndex();
  if (!hasEntryIndex && !EntryHandles().empty()) {
    missing.push_back({0, std::string(rfm_makeEntryIndex)});
  }
  for (rfm_ClassEntry const& entry : Classes()) {
    std::string const makeIndex = rfm_makeUidIndex(entry.table.View());
    bool const isThere = entry.table.IsEmpty() || node->HasIndex(entry.table.View(), makeIndex);
    if (!isThere && isMissing(entry.table.View(), rfm_UidColumn)) {
      missing.push_back({entry.typeId, makeIndex});
    }
  }
  return missing;
}

std::vector<std::int64_t> rfm_Database::EntryHandles() const {
  rfm_Connection& connection = node->Connection();
  rfm_ScopeGuard const scope(connection);
  std::vector<std::int64_t> handles;
  rfm_Run run(connection, node->entryHandles,
              std::string_view("SELECT DISTINCT handle FROM ddr_entry ORDER BY handle"));
  while (run.Step()) {
    handles.push_back(node->CheckedInteger(run.Get(), 0, std::numeric_limits<std::int64_t>::min(),
                                           std::numeric_limits<std::int64_t>::max(),
                                           "an entry belongs to a collection whose handle is no integer"));
  }
  return handles;
}

std::int64_t rfm_nextHandle(rfm_File const& file) {
  rfm_Connection& connection = rfm_FileNode::Of(file).Connection();
  rfm_ScopeGuard const scope(connection);
  rfm_Statement statement;
  rfm_Run run(connection, statement, std::string_view("SELECT next_handle FROM ddr_header"));
  if (!run.Step() || sqlite3_column_type(run.Get(), 0) != SQLITE_INTEGER) {
    rfm_throw(rfm_ErrorKind::Damaged, file.FileName(), {},
              "it is damaged: the next collection handle in its header is not valid",
              "Restore it from a backup");
  }
  return sqlite3_column_int64(run.Get(), 0);
}
