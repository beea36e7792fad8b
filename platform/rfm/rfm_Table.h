// rfm_Table: the rows of one stored class.
#pragma once

#include "cow_String.h"
#include "os_Export.h"
#include "rfm_FieldHandle.h"
#include "rfm_Row.h"

#include <memory>
#include <vector>

class rfm_TableNode;

/// A counted handle of a class table: a position and a row buffer of its own, over rows shared by all.
///
/// Copies share position and buffer; ask the database again for an independent handle. A handle keeps its
/// database and file open. Reading outside an rfm_ReadScope opens one around each call. Rows are numbered
/// from 0. Failures are rfm_Exception naming the file, the class and the row; position and buffer are as
/// before then, unless a call says otherwise.
class DDR_API rfm_Table {
public:
  /// One more than the highest row number; 0 for a class without rows.
  int Length() const;
  /// Whether the row is there.
  /// @param row [from 0], or -1 for the next row after the position
  bool RowExists(int row) const;
  /// Number of the next row after the position; -1 when there is none. Row numbers may have gaps.
  int NextRow() const;
  /// Sets the position before a row: the next "-1" means that row, or the first after it.
  void Seek(int row);
  /// Reads a row into the buffer and sets the position on it.
  /// @param row [from 0], or -1 for the next row after the position
  /// @returns the buffer
  /// @throws rfm_Exception when there is no such row, for row 0 of an empty table too
  rfm_Row const& ReadRow(int row);

  /// The row buffer.
  rfm_Row& Row() noexcept;
  /// @copydoc Row()
  rfm_Row const& Row() const noexcept;
  /// Sets every field of the buffer to null and drops its identity.
  void ClearRow();
  /// Writes the buffer over a row that is there. Inside a transaction.
  /// @param row [from 0], or -1 for the row of the buffer
  void UpdateRow(int row);
  /// Writes the buffer as a new row. Inside a transaction.
  /// @returns its number; the position is on it
  int AppendRow();
  /// Writes the buffer as a new row of a given number, for rows whose number was given out before they were
  /// complete. Inside a transaction. Throws when there is such a row already; the position is on it
  /// afterwards.
  /// @param row [from 0]
  void InsertRow(int row);
  /// Throws as InsertRow does of a number that no row can have: for those who give numbers out.
  /// @param row [from 0]
  void WantRoomFor(int row) const;
  /// How many rows hold an identity: 0 or 1 in a sound file.
  /// @param uid identity to look for
  /// @param rows takes the first of them, ascending; room for `most`
  /// @param most where counting stops
  int FindUid(rfm_Uid const& uid, int* rows, int most) const;

  /// Whether the stored layout has the field.
  bool HasField(rfm_FieldHandle const& field) const noexcept;
  /// The fields of the stored layout, in order; hidden ones left out.
  std::vector<cow_String> FieldNames() const;

private:
  friend class rfm_DatabaseNode;
  friend class rfm_Rebuild;
  explicit rfm_Table(std::shared_ptr<rfm_TableNode> table) noexcept;

  std::shared_ptr<rfm_TableNode> node;
};
