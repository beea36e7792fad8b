// The small vocabulary of class metadata: field names, attribute kinds, collection kinds, extent quanta.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

/// The name of a stored attribute.
class cls_FieldHandle {
public:
  cls_FieldHandle(cow_String fieldName) : name(std::move(fieldName)) {}
  cls_FieldHandle(char const* fieldName) : name(fieldName) {}

  cow_String const& Name() const noexcept { return name; }

private:
  cow_String name;
};

/// What one attribute holds. The numbers are stored in the class list of every file.
enum class cls_AttributeType : int {
  Integer = 5,  ///< a signed 32-bit integer
  Real = 7,     ///< a double
  Handle = 9,   ///< the number under which the entries of a collection are stored
  String = 11,  ///< a text
  Boolean = 13, ///< true or false
  Object = 15,  ///< one object, or a collection of objects
};

/// How many objects one attribute holds. The numbers are stored in the class list of every file.
enum class cls_CollectionType : int {
  Single = 0,
  List = 1,
  StringMap = 2,
};

/// The run-time kind of a collection that writes itself. Its codes are another set than those of
/// cls_CollectionType: a keyed collection of objects that loads on demand is 5 here and 2 in the catalogue.
class cls_CollectionTypeFix {
public:
  /// @param kindCode 5 for a keyed collection that loads on demand
  /// @param elementName name of the element class, or null for any
  constexpr cls_CollectionTypeFix(int kindCode, char const* elementName) noexcept
      : kind(kindCode), element(elementName) {}

  constexpr int Kind() const noexcept { return kind; }
  constexpr char const* Element() const noexcept { return element; }

private:
  int kind;
  char const* element;
};

/// The growth steps that a class may ask for its table [rows]. A hint: the file grows by pages whatever is
/// asked.
class DDR_API cls_ExtQuant {
public:
  static unsigned ExtentQuantumConstSmall() noexcept;
  static unsigned ExtentQuantumConstMedium() noexcept;
};

/// Type ids of the stored collection headers and lists that every file may hold. Stored.
inline constexpr unsigned cls_ListHeaderTypeId = 0x230001;
inline constexpr unsigned cls_MapHeaderTypeId = 0x230002;
inline constexpr unsigned cls_ListObjTypeId = 0x210001;
/// "No base class" in the class list.
inline constexpr unsigned cls_NoBaseTypeId = 1;
