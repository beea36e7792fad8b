// typ_ArchCompTable.h: the process-wide table of type names.
#pragma once

#include "os_Export.h"

/// One type of a component; its place in the component's block is the low half of its type id.
struct typ_Entry {
  unsigned kind;       ///< 7 for a class, 0 for an empty place
  unsigned baseTypeId; ///< type id of the persistent base class, 1 where there is none
  char const* name;    ///< null for an empty place
};

/// A component's block of entries as it is handed to typ_ArchCompTable; borrows the entries.
class typ_ArchCompEntry {
public:
  /// @param first the entry of index 0; borrowed while this object is used
  constexpr typ_ArchCompEntry(typ_Entry const* first, unsigned count) noexcept
      : firstEntry(first), entryCount(count) {}

  [[nodiscard]] constexpr typ_Entry const* First() const noexcept { return firstEntry; }
  [[nodiscard]] constexpr unsigned Count() const noexcept { return entryCount; }

private:
  typ_Entry const* firstEntry;
  unsigned entryCount;
};

/// Names, kinds and bases of all announced types. A type id has the component in its high and the index in
/// its low 16 bits. All calls may run at the same time. Stopping the library typ empties the table.
class DDR_API typ_ArchCompTable {
public:
  /// Announces a component's types, copying them; a former block of that component is replaced.
  /// @param entry at most 65536 entries; later ones have no type id and are left out
  static void InsertEntry(unsigned short component, typ_ArchCompEntry entry);

  /// @returns the type's name, which lives as long as the process; "" for an unknown type or an empty place
  static char const* GetName(unsigned typeId);

  /// @returns type id of the base, 1 for a type without one; 0 for an unknown type
  static unsigned GetBase(unsigned typeId);

  /// @returns the entry's kind; 0 for an unknown type
  static unsigned GetKind(unsigned typeId);

  /// Forgets all components.
  static void Clear();
};
