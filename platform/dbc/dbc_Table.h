// dbc_Table: rows that a conversion reads, changes or adds.
#pragma once

#include "dbc_Row.h"
#include "os_Export.h"

/// The rows of a class, or the entries of one collection (fields "Key", "ClassID" and "OID").
///
/// Handed out by the input and the output database, the utilities and the step under way; whoever is given
/// one deletes it, before the conversion function returns or at the latest in the finalize function. Rows
/// live as long as their table. Failures are rfm_Exception.
class DDR_API dbc_Table {
public:
  dbc_Table() = default;
  dbc_Table(dbc_Table const&) = delete;
  dbc_Table& operator=(dbc_Table const&) = delete;
  virtual ~dbc_Table();

  /// One more than the highest row number, rows that were appended but not finished included.
  virtual int Length() const = 0;
  /// The row at an index. For an input table it is valid until the next call.
  /// @param index [from 0]
  /// @throws rfm_Exception when there is no such row
  virtual dbc_Row& Row(int index) = 0;
  /// Adds a row without values behind the last one; its number is fixed at once. It is stored when it is
  /// finished, and dropped when it never is.
  /// @throws nex_TextException for an input table
  virtual dbc_Row& AppendRow() = 0;
  /// Stores what was written into a row of this table, and takes the row back.
  virtual void FinishRow(dbc_Row& row) = 0;
};
