// rfm_ClassEntry: how one stored class is described in the class list of a file.
#pragma once

#include "cow_String.h"

#include <vector>

/// Kinds of attributes that the file treats by themselves. Stored: never change a number. A kind that is not
/// listed here is kept as it is and its values are stored like a text's.
inline constexpr int rfm_AttributeKind_Integer = 5;  ///< a signed 32-bit integer
inline constexpr int rfm_AttributeKind_Real = 7;     ///< a double
inline constexpr int rfm_AttributeKind_Handle = 9;   ///< the number of a collection's entries
inline constexpr int rfm_AttributeKind_String = 11;  ///< a text
inline constexpr int rfm_AttributeKind_Boolean = 13; ///< 0 or 1
inline constexpr int rfm_AttributeKind_Object = 15;  ///< a reference: two fields, NAME#ClassID and NAME#OID

/// Type id that says "no base class". Stored.
inline constexpr unsigned rfm_NoBaseTypeId = 1;

/// One attribute of a stored class.
struct rfm_AttributeEntry {
  cow_String name;            ///< stored name
  int kind = 0;               ///< rfm_AttributeKind_*, stored as given
  unsigned elementTypeId = 1; ///< class of the object referred to; 1 for plain values
  int collection = 0;         ///< collection code, stored as given

  friend bool operator==(rfm_AttributeEntry const&, rfm_AttributeEntry const&) = default;
};

/// One stored class with its layout. A plain value.
struct rfm_ClassEntry {
  int row = -1;                               ///< place in the class list [from 0]; set by AddClass
  cow_String name;                            ///< stored class name
  cow_String table;                           ///< name of its SQL table; empty: it has had no rows yet
  unsigned typeId = 0;                        ///< unique in a file
  int version = 0;                            ///< class version of the layout
  unsigned baseTypeId = rfm_NoBaseTypeId;     ///< class of the base part; 1: none
  std::vector<rfm_AttributeEntry> attributes; ///< in stored order

  friend bool operator==(rfm_ClassEntry const&, rfm_ClassEntry const&) = default;
};
