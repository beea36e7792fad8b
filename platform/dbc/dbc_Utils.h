// dbc_Utils: what conversion functions make in the new file.
#pragma once

#include "cow_String.h"
#include "dbc_Table.h"
#include "omi_Singleton.h"
#include "os_Export.h"

#include <memory>

class rom_Transporter;

/// A value of an enumeration, as conversions store it.
class DDR_API dbc_Enum {
public:
  dbc_Enum(cow_String enumerationName, cow_String enumerationValue)
      : name(std::move(enumerationName)), value(std::move(enumerationValue)) {}
  /// Name of the enumeration.
  cow_String const& Name() const noexcept { return name; }
  /// Text of the value.
  cow_String const& Value() const noexcept { return value; }

private:
  cow_String name;
  cow_String value;
};

/// What conversion functions make in the new file of the conversion in progress. Reached through
/// omi_Singleton. Every table that is returned belongs to the caller, who deletes it, at once where the
/// attribute only has to exist. Failures are rfm_Exception; without a conversion in progress,
/// nex_AssertException.
///
/// The calls that make an attribute need an output row whose layout has it as a reference; they set the
/// reference. A collection that was there before loses it.
class DDR_API dbc_Utils {
public:
  /// Lists a class in the new file unless it is listed, and gives its rows.
  ///
  /// It gets the layout that the transporter's registrar knows. A class that no module of this process
  /// describes is listed with its first row, in the layout of what was written into that row, and under the
  /// number of the step as its version.
  /// @param transporter that of the output database
  std::unique_ptr<dbc_Table> CreateClassInOutputDatabase(unsigned typeId, rom_Transporter& transporter);
  /// The same for a class that no module describes, under a version given. It stays in the new file.
  std::unique_ptr<dbc_Table> CreateTempClassInOutputDatabase(unsigned typeId, int version);

  /// A map with text keys; entries are rows of "Key", "ClassID" and "OID".
  std::unique_ptr<dbc_Table> SetNewAttributeMapInOutputDatabase(dbc_Row& row, cow_String const& attribute);
  /// A list of objects of a class of their own, as records hold diagnostics; entries are rows of "ClassID"
  /// and "OID".
  std::unique_ptr<dbc_Table> SetNewAttributeMapListInOutputDatabase(dbc_Row& row,
                                                                    cow_String const& attribute);
  /// A plain list; entries are rows of "ClassID" and "OID".
  std::unique_ptr<dbc_Table> SetNewAttributeListInOutputDatabase(dbc_Row& row, cow_String const& attribute);
  /// A map with number keys; the keys are stored as decimal text.
  std::unique_ptr<dbc_Table> SetNewAttributeMapInt2ObjInOutputDatabase(dbc_Row& row,
                                                                       cow_String const& attribute);
  /// An array of numbers; each is a row whose "Key" is its decimal text.
  std::unique_ptr<dbc_Table> SetNewAttributeArrayIntInOutputDatabase(dbc_Row& row,
                                                                     cow_String const& attribute);
  /// An array of texts; each is the "Key" of a row.
  std::unique_ptr<dbc_Table> NEWSetNewAttributeArrayStringInOutputDatabase(dbc_Row& row,
                                                                           cow_String const& attribute);

  /// A value of an enumeration.
  dbc_Enum CreateEnum(cow_String const& enumeration, cow_String const& value);
  /// Writes a value of an enumeration into a field, as its text.
  void SetEnum(cow_String const& field, dbc_Row& row, dbc_Enum const& value);
};

template <>
DDR_API dbc_Utils& omi_Singleton<dbc_Utils>::Instance();
