// rfm_Rebuild: fills a new file from an older one.
#pragma once

#include "cow_String.h"
#include "os_Export.h"
#include "rfm_ClassEntry.h"
#include "rfm_Database.h"
#include "rfm_Table.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class rfm_DatabaseNode;
class rfm_TableShape;
struct sqlite3_stmt;

/// Fills a database that is being created from one that is read: tables whole, as they are stored, and class
/// layouts that change on the way.
///
/// Made outside a transaction; everything else happens inside one transaction of the new database and one
/// rfm_ReadScope of the old one. When that transaction is taken back, the new database is good for nothing
/// but to be dropped. Memory does not grow with the tables. Failures are rfm_Exception naming the file they
/// are about, the class and the row.
class DDR_API rfm_Rebuild {
public:
  /// Told the number of rows copied so far by the running call, every few thousand rows. May throw to stop.
  using Watch = std::function<void(std::int64_t)>;

  /// Throws (Other) when a name stands for the same file as an open one, links and all.
  static void WantOtherFile(rfm_File const& source, cow_String const& name);

  /// @param source an open database; bound
  /// @param made a database whose file is not yet published, without classes
  rfm_Rebuild(rfm_Database const& source, rfm_Database& made);
  ~rfm_Rebuild();
  rfm_Rebuild(rfm_Rebuild const&) = delete;
  rfm_Rebuild& operator=(rfm_Rebuild const&) = delete;

  /// How many rows the table of a class holds. O(pages of the table).
  static std::int64_t CountRows(rfm_Database const& database, unsigned typeId);
  /// How many entries all collections hold. O(pages of the table).
  static std::int64_t CountEntries(rfm_Database const& database);
  /// What the file of a database holds beside what the format describes and CopyFurtherTables would not copy:
  /// "view 'NAME'". Indexes are left out.
  static std::vector<std::string> FurtherThings(rfm_Database const& database);

  /// Copies the rows of a class that both class lists have: all columns of the stored table, values,
  /// identities and row numbers as they are.
  /// @param rows that there are, from CountRows. What is counted but not found, or the other way round, is
  ///             damage.
  void CopyRows(unsigned typeId, std::int64_t rows, Watch const& watch);
  /// Copies the entries of all collections, and sees to it that handles go on behind those of the old file.
  /// @param entries that there are, from CountEntries; as with CopyRows
  void CopyEntries(std::int64_t entries, Watch const& watch);

  /// Copies the tables that the format does not know, with their indexes and row numbers.
  /// @param alive asked again and again; may throw to stop
  /// @returns what could not be copied because this process cannot use it, or because it computes values that
  ///          may become long: "table 'NAME'", "index 'NAME'"
  std::vector<std::string> CopyFurtherTables(std::function<void()> const& alive);

  /// Gives a class of the new file another description: name, version, base and attributes. A table that it
  /// has by then keeps its columns and gets those that it lacks; for another layout see RetireTable.
  /// @param description of a listed type id; row and table are ignored
  /// @throws rfm_Exception when another class has the name
  void ChangeClass(rfm_ClassEntry const& description);
  /// The table of a class of the new file, for rows that a later layout will take over. Made under a name
  /// that is not the class's, it costs less to retire.
  rfm_Table MakeInterimTable(unsigned typeId);
  /// Takes the table of a class of the new file away from it, for a new one with another layout. No cursor of
  /// the table may be in the middle of its rows.
  /// @returns the rows that were there; to be let go before DropRetired
  rfm_Table RetireTable(unsigned typeId);
  /// Another handle of the rows of a table that is retired.
  rfm_Table RetiredTable(unsigned typeId) const;
  /// Deletes the rows of retired tables.
  void DropRetired();

  /// Runs work on the new file that takes long inside SQLite, such as the end of the transaction that makes
  /// the indexes.
  /// @param alive asked again and again meanwhile; what it throws stops the work and passes through
  void WhileAsking(std::function<void()> const& work, std::function<void()> const& alive);

private:
  /// How the rows of one table are copied.
  struct Move {
    cow_String const* className = nullptr; // null: entries
    int keys = 0;                          // how many columns say where a portion begins
    std::string insert;                    // copies a portion: the keys, and how many rows
    std::string last;                      // the keys of the last row that was copied
    std::string walk;                      // reads the same from the old file
  };

  static bool HoldsOnlyOurs(rfm_DatabaseNode& database);
  cow_String FreeInterimName() const;
  std::vector<std::pair<std::string, std::string>> DefinitionsOf(std::string const& table,
                                                                 std::string_view type) const;
  bool CopyFurtherTable(std::string const& name);
  bool TryToExecute(std::string const& sql);
  void CheckRowNumbers(rfm_TableShape const& shape) const;
  void Copy(Move const& move, std::int64_t rows, Watch const& watch);
  void BlameEntry(sqlite3_stmt* entry) const;
  void BlameSource(Move const& move) const;

  std::shared_ptr<rfm_DatabaseNode> from;
  std::shared_ptr<rfm_DatabaseNode> to;
  std::vector<std::shared_ptr<rfm_TableShape>> retired;
};
