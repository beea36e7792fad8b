// rfm_DatabaseNode: the state behind the handles of one database, its tables and its rows.
#pragma once

#include "rfm_ClassEntry.h"
#include "rfm_Database.h"
#include "rfm_Entries.h"
#include "rfm_EntryMap.h"
#include "rfm_FileNode.h"
#include "rfm_Format.h"
#include "rfm_Row.h"
#include "rfm_Statement.h"
#include "rfm_Table.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The columns that the attributes of a class take, in order; hidden ones left out.
std::vector<cow_String> rfm_columnsOf(rfm_ClassEntry const& entry);

/// A name as SQL text.
std::string rfm_quote(std::string_view name);
/// @{ The SQL of our indexes: of the keys of entries, and of the identities in a class table.
inline constexpr char const* rfm_makeEntryIndex = "CREATE INDEX ddr_entry_key ON ddr_entry(handle, Key)";
std::string rfm_makeUidIndex(std::string_view table);
/// @}

/// The order of SQLite's names: letters of ASCII are equal in both cases.
struct rfm_LessIgnoringCase {
  bool operator()(cow_String const& left, cow_String const& right) const noexcept {
    return sqlite3_stricmp(left.Text(), right.Text()) < 0;
  }
};

/// The order of names by their bytes. A map in this order can be asked for a text that is no cow_String.
struct rfm_NameOrder {
  using is_transparent = void;
  bool operator()(cow_String const& left, cow_String const& right) const noexcept { return left < right; }
  bool operator()(cow_String const& left, std::string_view right) const noexcept {
    return left.View() < right;
  }
  bool operator()(std::string_view left, cow_String const& right) const noexcept {
    return left < right.View();
  }
};

/// One value of a row buffer.
struct rfm_Row::Value {
  enum class Type : std::uint8_t { Null, Integer, Real, Text, BadText, Blob };

  Type type = Type::Null;
  std::int64_t integer = 0;
  double real = 0.0;
  cow_String text;
  std::string bytes; // of a text that must not be read, and of a blob: kept to be written back
};

/// The fields of a table, in order; hidden columns left out. Shared by the row buffers that have this layout.
class rfm_Layout {
public:
  rfm_Layout() = default;
  explicit rfm_Layout(std::vector<cow_String> fields);

  /// The place of a field; nothing when there is none.
  /// @param likely where it is sought first
  std::optional<std::size_t> PlaceOf(cow_String const& field, std::size_t likely) const noexcept;

  std::vector<cow_String> const columns = {};

private:
  std::vector<std::uint16_t> byName; // the places in the order of their names; empty for a few columns
};

/// What all handles of one class table share: its layout and its prepared statements.
class rfm_TableShape {
public:
  rfm_TableShape(rfm_DatabaseNode& owner, unsigned classTypeId);
  rfm_TableShape(rfm_TableShape const&) = delete;
  rfm_TableShape& operator=(rfm_TableShape const&) = delete;

  /// Takes the layout from the class list; the columns of a table that exists are read when first needed.
  void Describe(rfm_ClassEntry const* entry);
  /// Reads the columns of the table from the file, once.
  void WantColumns();
  /// Takes them from what the table was just made of.
  void KnowColumns(std::vector<cow_String> const& columns);
  bool Exists() const noexcept { return !table.IsEmpty(); }
  /// Drops the prepared statements and what is known of the columns.
  void Forget() noexcept;

  rfm_DatabaseNode& database;
  unsigned typeId;
  cow_String className;
  bool isClassList = false;
  cow_String table; // empty: no rows yet
  std::shared_ptr<rfm_Layout const> layout;
  bool hasUid = false;
  bool columnsRead = false;
  bool isFresh = false; // made in the running transaction: the index of identities is made at its end
  int nextRow = 0;
  std::uint64_t nextRowEpoch = 0; // when nextRow was found; valid while the epoch lasts

  rfm_Statement lookUp;
  rfm_Statement nextRowNumber;
  rfm_Statement lastRow;
  rfm_Statement findUid;
  rfm_Statement insert;
  rfm_Statement update;
  rfm_Statement updateUid;
  std::vector<rfm_Statement> idleScans;

  std::string SelectSql(std::string_view condition) const;
  std::string UpdateSql(bool withUid) const;
  std::string InsertSql() const;
};

/// One handle of a table: position and row buffer.
class rfm_TableNode final : public rfm_Scan {
public:
  rfm_TableNode(std::shared_ptr<rfm_DatabaseNode> owner, std::shared_ptr<rfm_TableShape> tableShape);
  ~rfm_TableNode() override;
  rfm_TableNode(rfm_TableNode const&) = delete;
  rfm_TableNode& operator=(rfm_TableNode const&) = delete;

  int Length();
  bool RowExists(int number);
  int NextRow();
  void Seek(int number);
  rfm_Row const& ReadRow(int number);
  void ClearRow();
  void UpdateRow(int number);
  int AppendRow();
  void InsertRow(int number);
  void WantRoomFor(int number) const;
  int FindUid(rfm_Uid const& uid, int* rows, int most);
  rfm_Row& Row() noexcept { return row; }
  rfm_TableShape& Shape() noexcept { return *shape; }

  void Stop() noexcept override;

private:
  [[noreturn]] void ThrowNoRow(int number) const;
  [[noreturn]] void ThrowBadRowNumber(std::int64_t number) const;
  void WantWritable() const;
  void FitBuffer();
  void StartScan(int from);
  bool StepScan(int& number);
  void EndScan() noexcept;
  void EndScanUnlessAt(int place) noexcept;
  std::optional<int> NextByScan();
  void Fill(sqlite3_stmt* statement, int number);
  void BindRow(rfm_Run& run, int firstParameter, bool withUid) const;
  int CheckedRow(std::int64_t number) const;
  std::optional<std::int64_t> FirstRowFrom(std::int64_t place);

  std::shared_ptr<rfm_DatabaseNode> database;
  std::shared_ptr<rfm_TableShape> shape;
  rfm_Row row;
  std::vector<rfm_Row::Value> incoming; // the row that is being read
  int next = 0;                         // the row that -1 means, or the first after it
  rfm_Statement scan;
  bool scanning = false;
  int scanNext = 0;     // the next row of the scan is this one or a later one
  bool stepped = false; // whether the scan stands on that row already
  rfm_Measure measure;  // of the rows that were read one behind the other
  int measuredRow = -1; // the last of them
};

/// What is wrong with a file that exceeds an rfm_Measure.
inline constexpr std::string_view rfm_sharedPages =
    "its rows take more than the file holds, so many of them lead to the same pages";

/// The walk behind an rfm_EntryCursor.
class rfm_EntryScan final : public rfm_Scan {
public:
  rfm_EntryScan(std::shared_ptr<rfm_DatabaseNode> owner, std::int64_t ofHandle);
  ~rfm_EntryScan() override;
  rfm_EntryScan(rfm_EntryScan const&) = delete;
  rfm_EntryScan& operator=(rfm_EntryScan const&) = delete;

  /// @returns the statement on its next row, or null at the end
  sqlite3_stmt* Next();
  rfm_DatabaseNode& Database() noexcept { return *database; }
  std::int64_t Handle() const noexcept { return handle; }
  void Stop() noexcept override;

  int position = -1; // of the last entry delivered
  rfm_Measure measure;

private:
  std::shared_ptr<rfm_DatabaseNode> database;
  std::int64_t handle;
  rfm_Statement statement;
  bool running = false;
  bool ended = false;
};

/// One database of a file.
class rfm_DatabaseNode : public std::enable_shared_from_this<rfm_DatabaseNode> {
  // First, because every statement here is prepared on the connection of the file.
  rfm_File file;
  rfm_Connection& connection;

public:
  explicit rfm_DatabaseNode(rfm_File const& databaseFile);

  void ReadHeader(cow_String const& wanted);
  void MakeTables(cow_String const& wanted, cow_String const& text, std::int64_t time);
  void Publish();
  void Bind();

  /// @{ See rfm_Transaction.
  void Begin();
  void Commit();
  void RollBack() noexcept;
  bool CommitStands() const noexcept { return commitStands; }
  /// @}

  rfm_ClassEntry const* FindClass(unsigned typeId) const noexcept;
  rfm_ClassEntry const* FindClassByName(std::string_view className) const noexcept;
  rfm_ClassEntry const& AddClass(rfm_ClassEntry const& added);
  rfm_Table ClassList();
  rfm_Table Table(unsigned typeId);
  rfm_Table TableForWriting(unsigned typeId);
  /// Makes the table of a listed class that has none.
  /// @param tableName empty: one after the class
  void MakeTable(unsigned typeId, std::vector<cow_String> const& columns, cow_String const& tableName = {});
  /// See rfm_Rebuild.
  void ChangeClass(rfm_ClassEntry const& changed);
  /// Gives the table of a class another name unless it has that, and takes it away from the class. Handles of
  /// it go on reading its rows.
  std::shared_ptr<rfm_TableShape> RetireTable(unsigned typeId, cow_String const& newName);
  std::int64_t NewHandle();
  std::uint64_t ChangeCount();
  std::uint32_t CommitCount();
  std::uint32_t ForeignCommits() { return CommitCount() - ownCommits; }

  rfm_Connection& Connection() noexcept { return connection; }
  rfm_File const& File() const noexcept { return file; }
  cow_String const& FileName() const noexcept { return connection.ShownName(); }
  /// See rfm_Database::OriginName.
  cow_String const& OriginName() const noexcept { return connection.OriginName(); }
  /// The SQL text of a table; nothing when it is not there. Throws when what stands under its name, or an
  /// index on it, is not plain.
  std::optional<std::string> PlainTable(std::string_view table, rfm_Subject const& subject = {});
  /// @{ The tables that are plain, others' among them, and whether all are. Outside a transaction.
  std::vector<cow_String> PlainTables();
  bool AllTablesArePlain();
  /// @}
  /// Whether a table has an index of just that SQL text. Outside a transaction.
  bool HasIndex(std::string_view table, std::string_view sql);
  /// Makes the index of identities of a table that was made in the running transaction.
  void MakeUidIndex(rfm_TableShape& shape);
  /// Whether the file has the index of the entries by key.
  bool HasEntryIndex();
  /// Makes the index of the entries by key unless the file has it.
  void WantEntryIndex();
  void MeasureKeys();

  /// The highest handle that collections have, be they empty or not; 0 without any.
  /// @param rows which rows of their tables are asked: the end of an SQL query, empty for all
  std::int64_t HighestHandle(char const* rows);
  [[noreturn]] void ThrowDamaged(std::string_view what, rfm_Subject const& subject = {}) const;
  /// Names the row that has the collection, too.
  /// @param what follows "entry 3 of collection 12"
  [[noreturn]] void ThrowDamagedEntry(std::int64_t handle, std::int64_t position, std::string_view what);
  cow_String CheckedText(sqlite3_stmt* statement, int column, std::string_view what) const;
  std::int64_t CheckedInteger(sqlite3_stmt* statement, int column, std::int64_t least, std::int64_t most,
                              std::string_view what) const;

  cow_String name;
  cow_String description;
  std::int64_t creationTime = 0;
  std::vector<rfm_ClassEntry> classes;
  std::uint64_t classesVersion = 0; // changes with them
  rfm_Entries entries;

  // What rfm_Entries keeps.
  rfm_Statement findEntry;
  rfm_Statement countEntries;
  rfm_Statement lastEntry;
  rfm_Statement appendEntry;
  rfm_Statement updateEntry;
  rfm_Statement removeEntry;
  rfm_Statement clearEntries;
  rfm_Statement entryHandles;
  std::vector<rfm_Statement> idleEntryScans;
  std::int64_t appendHandle = 0; // the collection appended to last
  int appendPosition = 0;        // and the place of its next entry
  std::uint64_t appendEpoch = 0; // valid while the epoch lasts
  bool entriesAppended = false;
  rfm_EntryMap entryMap;

private:
  friend class rfm_Rebuild;
  /// What the schema says of a table and its indexes.
  struct Definition {
    std::optional<std::string> table; // its SQL text
    std::vector<std::string> indexes; // their SQL texts; those of keys have none
    std::string fault;                // empty: all is plain
  };

  /// A row that has a collection.
  struct Header {
    std::int64_t handle;
    unsigned typeId;
    std::int64_t row;
  };

  /// The row that has a collection; nothing when none has.
  rfm_Subject HeaderOf(std::int64_t handle);
  void ReadHeaders();
  /// Lists a class behind all others, in memory.
  void Take(rfm_ClassEntry entry);
  void InsertAttributes(rfm_ClassEntry const& entry);
  void AddColumns(rfm_TableShape& shape, std::vector<cow_String> const& columns);
  std::vector<rfm_ClassEntry> ReadClasses();
  void CheckClass(rfm_ClassEntry const& entry) const;
  void CheckSchema();
  void TakeClasses(std::vector<rfm_ClassEntry> read);
  void Refresh();
  std::shared_ptr<rfm_TableShape> ShapeOf(unsigned typeId);
  bool SqlNameIsTaken(std::string_view sqlName);
  Definition const* DefinitionOf(std::string_view table, Definition& found);
  void ReadDefinitions();
  void Add(Definition& definition, sqlite3_stmt* schemaRow) const;
  cow_String MakeTableName(std::string_view className);
  void StoreNextHandle();
  void NoteOwnCommit() noexcept;
  int ReadCommitCount(std::uint32_t& count) const noexcept;
  [[noreturn]] void EndDoubtfulCommit();
  void ForgetChanges() noexcept;

  // Ordered, for a file may choose type ids that all have one place in a hashed table.
  std::map<unsigned, std::size_t> byTypeId;
  std::map<cow_String, std::size_t, rfm_NameOrder> byName;
  std::map<unsigned, std::shared_ptr<rfm_TableShape>> shapes;
  std::shared_ptr<rfm_TableShape> classListShape;
  std::vector<Header> headers;           // by their handles; kept, for each of many entries may be damaged
  std::optional<rfm_State> headersState; // that they are from
  bool bound = false;
  bool tablesDescribed = true; // whether every table knows the class list as it is
  std::uint64_t boundData = 0;
  std::map<cow_String, Definition, rfm_LessIgnoringCase> definitions; // by table
  std::optional<std::uint64_t> definitionsData;                       // as of when they were read
  std::uint64_t definitionsChanges = 0;
  std::uint64_t boundClassList = 0;
  std::uint32_t ownCommits = 0;    // that changed the file
  std::uint32_t commitsBefore = 0; // as the transaction began
  bool commitStands = false;       // of the last transaction
  std::size_t classesBefore = 0;   // as the transaction began
  std::vector<unsigned> tablesMade;
  bool classesChanged = false;
  bool descriptionsChanged = false; // of classes listed before
  bool entryIndexMade = false;
  std::optional<bool> entryIndexExists;
  std::uint64_t entryIndexData = 0;

  rfm_Statement insertClass;
  rfm_Statement insertAttribute;
  rfm_Statement setTable;
  rfm_Statement readNextHandle;
  rfm_Statement writeNextHandle;
  rfm_Statement findSchema;
  rfm_Statement findDefinitions;
  rfm_Statement readDefinitions;
};
