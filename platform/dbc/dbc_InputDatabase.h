// dbc_InputDatabase: what a conversion step reads.
#pragma once

#include "dbc_Table.h"
#include "os_Export.h"
#include "rfm_Database.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string_view>

/// The classes and collections as they are before the step under way. Never changed through it. Rows of the
/// class that the step acts on may show what it did to them already, where they keep their layout.
class DDR_API dbc_InputDatabase {
public:
  /// @param source the old file
  /// @param working the new file, which holds what earlier steps made
  /// @param entries how many all collections of the old file have
  dbc_InputDatabase(rfm_Database const& source, rfm_Database const& working, std::int64_t entries);

  /// Whether the class is listed, with rows or without.
  bool HasInputTable(unsigned typeId) const;
  /// The listed classes that have an attribute of that name. Costs a look at the whole class list.
  std::set<unsigned> ClassesWith(std::string_view attribute) const;
  /// How many entries all collections of the old file have.
  std::int64_t EntriesOfOldFile() const noexcept { return entriesOfOldFile; }
  /// Whether the old file has the row; false for one that a step has added.
  bool IsOfOldFile(unsigned typeId, int row) const;
  /// The rows of a class. The caller owns the table.
  /// @throws rfm_Exception when no such class is listed
  std::unique_ptr<dbc_Table> GetInputTable(unsigned typeId) const;
  /// The entries of a collection; none for an unknown handle. The caller owns the table. Reading rows in
  /// order costs one step of a scan each.
  std::unique_ptr<dbc_Table> GetInputEntries(std::int64_t handle) const;

  /// Refuses the old file.
  /// @param row the row of the class that is wrong [from 0]
  /// @param what is wrong with it
  /// @throws rfm_Exception Damaged, naming all of them
  [[noreturn]] void Refuse(unsigned typeId, int row, std::string_view what) const;

  /// Says where the rows of a class are while they are moved from one layout to the next.
  /// @param rows gives a handle of its own at each call; empty when the move has ended
  void ReadDuringMove(unsigned typeId, std::function<rfm_Table()> rows);
  /// Says that the rows of a class are those of the new file from now on.
  void ReadFromWorking(unsigned typeId) { moved.insert(typeId); }

private:
  rfm_Database source;
  rfm_Database working;
  std::int64_t entriesOfOldFile;
  std::set<unsigned> moved;
  unsigned movingTypeId = 0;
  std::function<rfm_Table()> moving;
};
