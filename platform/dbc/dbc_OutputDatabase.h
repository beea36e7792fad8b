// dbc_OutputDatabase: what a conversion step writes.
#pragma once

#include "cow_String.h"
#include "dbc_Table.h"
#include "os_Export.h"
#include "rfm_ClassEntry.h"
#include "rfm_Database.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

class rom_Transporter;

/// The new file while it is being made: its tables, and its transporter.
class DDR_API dbc_OutputDatabase {
public:
  /// @param made the new file, inside a transaction
  /// @param transporter way to the new file; its registrar knows the current layouts
  /// @param rename gives a listed class another description
  dbc_OutputDatabase(rfm_Database const& made, rom_Transporter& transporter,
                     std::function<void(rfm_ClassEntry const&)> rename);
  ~dbc_OutputDatabase();

  rom_Transporter& Transporter() const noexcept { return transporter; }

  /// The rows of a class that the new file lists; they can be changed and more can be added. The caller owns
  /// the table.
  /// @throws rfm_Exception when no such class is listed
  std::unique_ptr<dbc_Table> GetOutputTable(unsigned typeId);
  /// The same for a class that dbc_Utils::CreateTempClassInOutputDatabase made.
  std::unique_ptr<dbc_Table> GetTempTable(unsigned typeId) { return GetOutputTable(typeId); }

  /// Lists a class unless it is listed: in the current layout where a module of this process describes it. A
  /// class that none describes is listed with its first row, under the version given; its layout is that of
  /// what is written, and grows with it.
  std::unique_ptr<dbc_Table> CreateClass(unsigned typeId, int versionOfUnknown);
  /// A new collection: a header row in the table of its type, and no entries yet.
  /// @param headerTypeId type id of the collection's header
  /// @param row takes the reference to it in NAME#ClassID and NAME#OID
  /// @returns its entries, owned by the caller
  std::unique_ptr<dbc_Table> CreateCollection(unsigned headerTypeId, dbc_Row& row,
                                              cow_String const& attribute);
  /// The entries of a collection, to read and to add to. The caller owns the table.
  std::unique_ptr<dbc_Table> GetOutputEntries(std::int64_t handle);
  /// The entry of a key; the first when there are several.
  std::optional<rfm_Entry> FindEntry(std::int64_t handle, cow_String const& key) const;

  /// Gives the class of a table its name, when it was listed without one.
  void NameClassOf(dbc_Table const& table, cow_String const& name);
  /// How many rows conversion functions added to a class.
  std::int64_t RowsAdded(unsigned typeId) const;
  /// How many entries conversion functions added.
  std::int64_t EntriesAdded() const noexcept { return entriesAdded; }
  /// The classes whose rows were added to or changed.
  std::set<unsigned> const& Touched() const noexcept { return touched; }

private:
  friend class dbc_EntryTable;
  friend class dbc_StoredTable;
  struct ClassState {
    int nextRow = -1; // -1: not yet known
    std::int64_t added = 0;
    int versionOfUnknown = 0;
    std::vector<rfm_Table> idle; // handles to write with
  };

  ClassState& StateOf(unsigned typeId);
  int Length(unsigned typeId);
  std::unique_ptr<dbc_Row> NewRow(unsigned typeId);
  std::unique_ptr<dbc_Row> ExistingRow(unsigned typeId, int index);
  void Store(unsigned typeId, dbc_Row& row);
  void WantFieldsOf(unsigned typeId, dbc_Row const& row);
  /// Says which object the rows that are added from now on belong to: their identities follow from its own,
  /// so that converting a file again gives the same ones.
  void SetOwner(std::optional<rfm_Uid> const& uid) { owner = uid; }
  /// Takes over what a pass over the rows of a class found out: the next free row.
  void BeginPass(unsigned typeId, int nextRow);
  friend class dbc_ClassPass;

  rfm_Database database;
  rom_Transporter& transporter;
  std::function<void(rfm_ClassEntry const&)> changeClass;
  std::map<unsigned, ClassState> states; // ordered, for the old file chooses the type ids
  std::set<unsigned> nameless;
  std::set<unsigned> touched;
  std::int64_t entriesAdded = 0;
  std::optional<rfm_Uid> owner;
};
