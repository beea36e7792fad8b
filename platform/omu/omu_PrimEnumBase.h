// omu_PrimEnumBase: an enumeration value that keeps both its number and its text.
#pragma once

#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_Map.h"
#include "omu_Primitive.h"

/// One row of an enumeration's table; a row with a null text ends the table.
struct omu_PrimEnumEntry {
  char const* text;
  unsigned value;
};

/// The part of an enumeration value that does not depend on the enumeration. Stored as its text.
class DDR_API omu_PrimEnumBase : public omu_Primitive {
public:
  ~omu_PrimEnumBase() override;

  /// Every permissible text with its value.
  virtual cow_Map<cow_String, unsigned int> PermissibleValues() const = 0;
  /// Sets the value of a text, compared byte by byte.
  /// @return false, and nothing changes, when the text is not permissible
  virtual bool SetValue(char const* text) = 0;
  virtual void DBWrite(cls_WriteVisitor const& writer) const;

  cow_String const& GetString() const noexcept { return text; }
  unsigned GetNumber() const noexcept { return value; }
  /// The permissible texts in the order of the table, separated by a comma and a blank.
  cow_String PermissibleValuesAsString() const;

protected:
  omu_PrimEnumBase() = default;
  /// Takes the stored text as it stands; the derived class checks it.
  explicit omu_PrimEnumBase(cls_ReadVisitor const& reader);
  omu_PrimEnumBase(omu_PrimEnumBase const&) = default;
  omu_PrimEnumBase& operator=(omu_PrimEnumBase const&) = default;

  /// The enumeration's table, ended by a null text.
  virtual omu_PrimEnumEntry const* Table() const noexcept = 0;
  void Set(omu_PrimEnumEntry const& entry);

private:
  cow_String text;
  unsigned value = 0;
};
