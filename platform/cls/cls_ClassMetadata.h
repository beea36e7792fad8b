// cls_ClassMetadata: what the persistence layer knows of one class.
#pragma once

#include "cls_Attribute.h"
#include "cow_COW.h"
#include "cow_String.h"
#include "os_Export.h"

#include <vector>

class cls_ReadVisitor;

/// Builds an object from its stored attributes; the caller owns the result. Null: the class is never built by
/// id.
using cls_ReadConstructor = void* (*)(cls_ReadVisitor&);
/// Releases one erased handle of an object of the class and frees the handle.
using cls_HandleDestructor = void (*)(cow_COW<int, cow_Direct<int>>*);

/// One stored attribute of a class.
struct cls_AttributeMetadata {
  cow_String name;
  cls_AttributeType kind;
  unsigned elementTypeId;
  cls_CollectionType collection;
};

/// The description of one persistent class. Made by cls_ClassRegistrar::CreateClassMD; the calls chain.
class DDR_API cls_ClassMetadata {
public:
  cls_ClassMetadata(cow_String className, unsigned classTypeId, int classVersion,
                    cls_ReadConstructor constructor, unsigned classBaseTypeId);

  /// @param release called for each erased handle of the class that the object cache lets go
  cls_ClassMetadata& AddDtor(cls_HandleDestructor release);
  /// @param rows [rows] the growth step of the class's table
  cls_ClassMetadata& AddTableExtentQuantum(unsigned rows);
  cls_ClassMetadata& AddAttribute(cls_FieldHandle const& field, cls_AttributeType kind,
                                  unsigned elementTypeId, cls_CollectionType collection);

  cow_String const& Name() const noexcept { return name; }
  unsigned TypeId() const noexcept { return typeId; }
  int Version() const noexcept { return version; }
  unsigned BaseTypeId() const noexcept { return baseTypeId; }
  cls_ReadConstructor Constructor() const noexcept { return constructor; }
  /// Null when the class registered none.
  cls_HandleDestructor Destructor() const noexcept { return destructor; }
  /// 0 when the class registered none.
  unsigned ExtentQuantum() const noexcept { return extentQuantum; }
  std::vector<cls_AttributeMetadata> const& Attributes() const noexcept { return attributes; }

private:
  cow_String name;
  unsigned typeId;
  int version;
  cls_ReadConstructor constructor;
  unsigned baseTypeId;
  cls_HandleDestructor destructor = nullptr;
  unsigned extentQuantum = 0;
  std::vector<cls_AttributeMetadata> attributes;
};
