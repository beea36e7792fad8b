// rfm_Row: one row of a table, in memory.
#pragma once

#include "cow_String.h"
#include "os_Export.h"
#include "rfm_FieldHandle.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class rfm_Layout;
class rfm_TableShape;

/// The stored identity of an object: 16 bytes, most significant first.
using rfm_Uid = std::array<std::uint8_t, 16>;

/// The row buffer of an rfm_Table: its fields by name, and the identity of the object.
///
/// Lives as long as its table handle. Reading takes null for 0, false and the empty text. A value that was
/// stored with another type, a number outside the type asked for, and a text that is not UTF-8 or holds a
/// zero byte throw rfm_Exception (Damaged) naming the file, the class, the row and the field. Finding a field
/// costs a few nanoseconds, less when fields are asked for in stored order.
class DDR_API rfm_Row {
public:
  rfm_Row(rfm_Row const&) = delete;
  rfm_Row& operator=(rfm_Row const&) = delete;
  ~rfm_Row();

  /// Whether the stored layout has the field.
  bool HasField(rfm_FieldHandle const& field) const noexcept;
  /// Whether the layout has the field and its value is not null.
  bool FieldIsSet(rfm_FieldHandle const& field) const noexcept;

  /// A 32-bit number; 0 for null.
  int ReadFieldInt(rfm_FieldHandle const& field) const;
  /// A 64-bit number; 0 for null.
  std::int64_t ReadFieldInt64(rfm_FieldHandle const& field) const;
  /// A type id or another unsigned 32-bit number; 0 for null.
  unsigned ReadFieldUnsigned(rfm_FieldHandle const& field) const;
  /// The number of a collection's entries; 0 for null. For "Class Table" of the class list: the number that
  /// rfm_Database::TableOfHandle takes, 0 when the class has had no rows.
  std::int64_t ReadFieldHandle(rfm_FieldHandle const& field) const;
  /// A text; empty for null. Long texts are shared with the buffer, not copied.
  cow_String ReadFieldString(rfm_FieldHandle const& field) const;
  /// A double (a stored integer is taken too); 0.0 for null.
  double ReadFieldDouble(rfm_FieldHandle const& field) const;
  /// 0 is false, 1 is true; false for null.
  bool ReadFieldBool(rfm_FieldHandle const& field) const;

  /// @{ Change the buffer; the table writes it. An unknown field, and a text that is not UTF-8, throw
  /// rfm_Exception (Other) naming file, class and field; the buffer is unchanged then.
  void WriteFieldInt(rfm_FieldHandle const& field, int value);
  void WriteFieldInt64(rfm_FieldHandle const& field, std::int64_t value);
  void WriteFieldUnsigned(rfm_FieldHandle const& field, unsigned value);
  void WriteFieldHandle(rfm_FieldHandle const& field, std::int64_t value);
  void WriteFieldString(rfm_FieldHandle const& field, cow_String const& value);
  void WriteFieldDouble(rfm_FieldHandle const& field, double value);
  void WriteFieldBool(rfm_FieldHandle const& field, bool value);
  void WriteFieldNull(rfm_FieldHandle const& field);
  /// @}

  /// Takes over the fields of another table's row that this layout has too, values as they are stored; other
  /// fields stay. The identity comes along when the source has one.
  void CopyFieldsFrom(rfm_Row const& source);

  /// Takes over one field of another table's row, its value as it is stored. Both layouts must have it.
  void CopyFieldFrom(rfm_Row const& source, rfm_FieldHandle const& field);

  /// The identity of the object; none when the row was stored without.
  std::optional<rfm_Uid> Uid() const;
  /// Sets the identity.
  void SetUid(rfm_Uid const& uid);
  /// The row that was read or written last [from 0]; -1 before.
  int RowNumber() const noexcept { return rowNumber; }

private:
  friend class rfm_TableNode;
  struct Value;

  rfm_Row();
  Value const* Find(rfm_FieldHandle const& field) const noexcept;
  Value const& Get(rfm_FieldHandle const& field) const;
  Value& Change(rfm_FieldHandle const& field);
  [[noreturn]] void Damaged(rfm_FieldHandle const& field, char const* what) const;
  std::int64_t Integer(rfm_FieldHandle const& field, Value const& value) const;

  std::shared_ptr<rfm_TableShape> shape;
  std::shared_ptr<rfm_Layout const> layout;
  std::vector<Value> values;
  mutable std::size_t hint = 0;
  int rowNumber = -1;
  int readRow = -1; // the stored row that the values are those of, while unchanged; -1: none
  rfm_Uid uid{};
  bool hasUid = false;
  bool uidChanged = false;
};
