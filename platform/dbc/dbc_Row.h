// dbc_Row: one row that a conversion reads or writes.
#pragma once

#include "cow_String.h"
#include "os_Export.h"
#include "rfm_FieldHandle.h"
#include "rfm_Table.h"

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

/// One row that a conversion reads or writes, fields by stored name.
///
/// A row of a class that a module of this process describes has the fields of its layout. A new row of any
/// other class, and a row of a collection, has besides the fields that are written into it. Rows belong to
/// their table or to the step under way; what is written is kept when the row is finished. Failures are
/// rfm_Exception naming the file, the class, the row and the field.
class DDR_API dbc_Row {
public:
  dbc_Row(dbc_Row const&) = delete;
  dbc_Row& operator=(dbc_Row const&) = delete;
  ~dbc_Row();

  /// Whether the row has the field.
  bool HasField(rfm_FieldHandle const& field) const noexcept;
  /// Whether the row has the field and its value is set.
  bool IsPresent(rfm_FieldHandle const& field) const noexcept;

  /// @{ A value; 0, false or the empty text for one that is not set. A field that the row has not, and a
  /// value of another type, throw.
  int ReadFieldInt(rfm_FieldHandle const& field) const;
  unsigned ReadFieldUnsigned(rfm_FieldHandle const& field) const;
  std::int64_t ReadFieldHandle(rfm_FieldHandle const& field) const;
  double ReadFieldDouble(rfm_FieldHandle const& field) const;
  bool ReadFieldBool(rfm_FieldHandle const& field) const;
  cow_String ReadFieldString(rfm_FieldHandle const& field) const;
  /// @}

  /// @{ Change a value. A field that the layout has not throws; only -1 for "##BaseClassOID", no base part,
  /// is left out where the class has none.
  void WriteFieldInt(rfm_FieldHandle const& field, int value);
  void WriteFieldUnsigned(rfm_FieldHandle const& field, unsigned value);
  void WriteFieldHandle(rfm_FieldHandle const& field, std::int64_t value);
  void WriteFieldDouble(rfm_FieldHandle const& field, double value);
  void WriteFieldBool(rfm_FieldHandle const& field, bool value);
  void WriteFieldString(rfm_FieldHandle const& field, cow_String const& value);
  void WriteFieldNull(rfm_FieldHandle const& field);
  /// @}

  /// Number of the row in its table [from 0].
  int Index() const noexcept { return index; }

private:
  friend class dbc_ClassPass;
  friend class dbc_EntryTable;
  friend class dbc_OutputDatabase;
  friend class dbc_ReadTable;

  using Value = std::variant<std::monostate, std::int64_t, double, cow_String>; // the first: null
  /// A field that the layout has not.
  struct Loose {
    cow_String name;
    int kind; // rfm_AttributeKind_*
    Value value;
  };

  /// A row without a layout.
  explicit dbc_Row(int number) noexcept : index(number) {}
  /// The row in a table's buffer.
  dbc_Row(int number, rfm_Table table) : index(number), stored(std::move(table)) {}

  /// The buffer that has the field; null for a field that is loose or may become it.
  rfm_Row const* Holder(rfm_FieldHandle const& field) const noexcept;
  rfm_Row* Holder(rfm_FieldHandle const& field) noexcept;
  Loose const* Find(rfm_FieldHandle const& field) const noexcept;
  Loose const& Get(rfm_FieldHandle const& field) const;
  std::int64_t LooseInteger(rfm_FieldHandle const& field) const;
  void SetLoose(rfm_FieldHandle const& field, int kind, Value value);

  int index;
  std::optional<rfm_Table> stored;
  std::vector<Loose> loose;
  bool takesFields = false; // beyond those of its layout
  bool changed = false;
  bool isNew = false; // has a number, but is not stored yet
};
