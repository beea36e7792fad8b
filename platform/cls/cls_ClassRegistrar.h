// cls_ClassRegistrar: the catalogue of persistent classes that files are read and written with.
#pragma once

#include "cls_ClassMetadata.h"

#include <map>
#include <memory>

/// The persistent classes known to one user of files.
///
/// A new registrar holds the collection headers that every file may hold (maps, lists, object lists) and
/// nothing else. Copies share one catalogue: a class entered through one copy is seen by all. One thread at a
/// time.
class DDR_API cls_ClassRegistrar {
public:
  cls_ClassRegistrar();

  /// Enters a class, replacing an entry of the same type id. The base class may be entered later.
  /// @param constructor builds an object from a reader; may be null or return null
  /// @param baseTypeId type id of the persistent base class, or 1 for none
  /// @return the entry, to add the rest; valid as long as the catalogue
  cls_ClassMetadata& CreateClassMD(cow_String const& name, unsigned typeId, int version,
                                   cls_ReadConstructor constructor, unsigned baseTypeId);

  /// The entry of a class, or null when it is not known.
  cls_ClassMetadata const* Find(unsigned typeId) const;
  /// Whether `typeId` is `baseTypeId` or is derived from it through entered classes.
  bool IsDerivedFrom(unsigned typeId, unsigned baseTypeId) const;
  /// The type ids of all entered classes, ascending.
  std::vector<unsigned> TypeIds() const;

private:
  using Catalogue = std::map<unsigned, cls_ClassMetadata>;
  std::shared_ptr<Catalogue> catalogue;
};
